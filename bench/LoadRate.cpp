#include "LoadRate.h"

#include <chrono>
#include <ctime>
#include <stdexcept>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/load/LoadSession.h"
#include "host/plan/ImagePlan.h"
#include "host/plugin/HostServices.h"
#include "host/probe/simulated/SimulatedProbe.h"
#include "simulator/probe/ProbeSpeed.h"

namespace bench {
namespace {

host::DeviceDescription DeviceWithMain(std::size_t size) {
  for (const auto& file : host::ListDeviceFiles(TOVIK_DEVICES)) {
    host::DeviceDescription device = host::ReadDeviceDescription(file);
    if (device.map.main.size >= size) return device;
  }
  throw std::runtime_error("no device description has enough MAIN flash");
}

host::PropertyStore Defaults(const host::DeviceDescription& device) {
  host::PropertyStore settings;
  for (const host::FlashProperty& property : device.properties) settings.Set(property.name, property.value);
  return settings;
}

double ThreadCpuNs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

}  // namespace

ModelledLoad MeasureModelledLoad(const host::PluginLibrary& library, const std::string& probeName,
                                 const std::vector<std::uint8_t>& image) {
  const host::DeviceDescription device = DeviceWithMain(image.size());
  host::SimulatedProbe probe(device, {}, probeName);
  host::PropertyStore settings = Defaults(device);
  host::HostServices services(probe, settings);
  services.ConnectDebugPort();

  const host::ImageFile file = host::ParseImage("image.bin", image, device.map.main.base);
  const host::LoadPlan plan = host::PlanLoad({&file, 1}, device.map, host::PluginCuts::No);
  host::LoadRecord record = host::PlannedLoad(plan, {file}, device, settings);
  const double cpuBefore = ThreadCpuNs();
  const auto before = std::chrono::steady_clock::now();
  host::LoadSession({library, services, probe, device, settings}).Run(plan, record);
  if (record.failure) throw std::runtime_error(record.failure->text);
  return {.seconds = static_cast<double>(record.elapsedNs) / 1e9,
          .roundTrips = probe.RoundTrips(),
          .packets = probe.Counted().packets,
          .realSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count(),
          .cpuNs = ThreadCpuNs() - cpuBefore};
}

double WireBytesPerSecond(const std::string& probeName) {
  // One 32-bit word takes 46 clocks.
  return static_cast<double>(simulator::FindProbeSpeed(probeName).value().wireHz) * 4 / 46;
}

}  // namespace bench
