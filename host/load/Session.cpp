#include "host/load/Session.h"

#include <fmt/format.h>

#include <utility>

namespace host {

namespace {
constexpr std::uint32_t kAhbApEnabled = 1U << 24;  // of CFGAP_DEVICESTATUS
}  // namespace

Session::Session(SessionRequest request)
    : device(std::move(request.device)),
      settings(std::move(request.settings)),
      probe(OpenProbe(request.probe, device)),
      library(request.plugin),
      services(*probe, settings) {
  for (HostFault& fault : request.faults) services.Fail(std::move(fault));
}

void Session::TraceTo(const std::filesystem::path& file) {
  trace.emplace(file.string());
  for (const FlashProperty& property : device.properties)
    if (property.type == PropertyType::Password) trace->Hide(settings.Get(property.name));
  services.TraceTo(&*trace);
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
