#include "host/load/Session.h"

#include <fmt/format.h>

#include <utility>

#include "host/device/Passwords.h"

namespace host {

namespace {
constexpr std::uint32_t kAhbApEnabled = 1U << 24;  // of CFGAP_DEVICESTATUS
}  // namespace

Session::Session(SessionRequest request)
    : device(std::move(request.device)),
      settings(std::move(request.settings)),
      probe(OpenProbe(request.probe, device)),
      library(request.plugin),
      services(*probe, settings),
      pluginName(request.plugin.string()),
      probeName(request.probe.name) {
  for (HostFault& fault : request.faults) services.Fail(std::move(fault));
}

void Session::TraceTo(const std::filesystem::path& file, const std::string& program) {
  TraceSecrets secrets;
  for (const FlashProperty& property : device.properties)
    if (property.type == PropertyType::Password) secrets.settings.push_back(property.name);
  const std::string password = PasswordInUse(settings).bytes;
  secrets.passwords.emplace_back(password.begin(), password.end());
  trace.emplace(file.string(), TraceHeader{program, pluginName, device.name, probeName}, std::move(secrets));
  services.AddObserver(*trace);
}

std::optional<std::string> Session::TraceLoss() const {
  return trace ? trace->Loss() : std::nullopt;
}

std::uint32_t Session::ReadRegister(std::string_view name) {
  services.ConnectDebugPort();
  const std::optional<std::uint32_t> address = probe->FindRegister(name);
  if (!address) throw std::runtime_error(fmt::format("there is no register \"{}\"", name));
  return probe->ReadRegister(*address);
}

bool Session::IsDebuggingOpen() {
  return (ReadRegister("CFGAP_DEVICESTATUS") & kAhbApEnabled) != 0;
}

void Session::SaveChip() {
  if (ChipView* const view = View()) view->Save();
}

}  // namespace host
