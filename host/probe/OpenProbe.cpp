#include "host/probe/OpenProbe.h"

#include <fmt/format.h>

#include <string_view>

#include "host/device/InputError.h"
#include "host/probe/simulated/SimulatedProbe.h"

namespace host {

namespace {

constexpr std::string_view kSimulated = "sim";
constexpr std::string_view kUsualTiming = "hs";

// The kind of probe that is modelled; nothing for the name of another probe.
std::optional<std::string_view> TimingOf(std::string_view name) {
  if (name == kSimulated) return kUsualTiming;
  if (!name.starts_with(kSimulated) || name.substr(kSimulated.size(), 1) != ":") return std::nullopt;
  return name.substr(kSimulated.size() + 1);
}

}  // namespace

std::unique_ptr<DebugProbe> OpenProbe(const ProbeOptions& options, const DeviceDescription& device) {
  const std::optional<std::string_view> timing = TimingOf(options.name);
  if (!timing)
    throw InputError(
        fmt::format("there is no probe \"{}\": sim, sim:hs, sim:fs and sim:hid are known", options.name));
  return std::make_unique<SimulatedProbe>(device, options.chip, *timing);
}

}  // namespace host
