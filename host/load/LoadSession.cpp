#include "host/load/LoadSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace host {

namespace {

// What the plug-in compares, in its order, and how it says that it stops there.
struct Compared {
  Region region;
  std::string_view failure;  // an information line
  std::string_view refusal;  // the beginning of an error text
};
constexpr std::array<Compared, 3> s_compared = {{
    {Region::Main, "Main flash Verification Failed!", "Error when verifying flash - "},
    {Region::Ccfg, "CCFG Verification Failed!", "Error when verifying CCFG - "},
    {Region::Scfg, "SCFG Verification Failed!", "Error when verifying SCFG - "},
}};

RegionReport* FindRegion(LoadReport& report, Region region) {
  const auto found = std::find_if(report.regions.begin(), report.regions.end(),
                                  [&](const RegionReport& candidate) { return candidate.region == region; });
  return found == report.regions.end() ? nullptr : &*found;
}

// About what the plug-in moves to the target: whole sectors and regions; its commands add little to that.
std::uint64_t EstimateWireBytes(const LoadPlan& plan, const MemoryMap& map) {
  std::uint64_t bytes = 0;
  for (const ImageBlock& block : plan.blocks) {
    const bool isMain = block.region == Region::Main && map.sectorSize != 0;
    const std::uint64_t head = isMain ? block.address % map.sectorSize : 0;
    const std::uint64_t unit = isMain ? map.sectorSize : 1;
    bytes += (head + block.data.size() + unit - 1) / unit * unit;
  }
  return bytes;
}

}  // namespace

LoadReport LoadSession::Run(const LoadPlan& plan, const MemoryMap& map, LoadMode mode,
                            const LoadEventSink& sink) {
  LoadReport report;
  report.mode = mode;
  report.regions = DescribeRegions(plan, map);
  const LoadEventSink tell = sink ? sink : [](const LoadEvent&) {};
  tell(LoadPlanned{mode, report.regions, mode == LoadMode::Program ? EstimateWireBytes(plan, map) : 0});

  const std::uint64_t startNs = probe.ElapsedNs();
  const std::uint64_t startCalls = services.CallCount();
  services.onMessage = [&](bool isError, const std::string& text) {
    report.messages.push_back({isError, text});
    tell(report.messages.back());
  };
  services.onBytesWritten = [&](std::uint64_t bytes) {
    report.bytesWritten += bytes;
    tell(BytesMoved{report.bytesWritten, probe.ElapsedNs() - startNs});
  };

  try {
    Drive(plan, report, tell);
  } catch (const std::exception& error) {
    report.error = error.what();
  }
  if (mode == LoadMode::Verify) JudgeVerification(report);
  services.onMessage = nullptr;
  services.onBytesWritten = nullptr;

  report.elapsedNs = probe.ElapsedNs() - startNs;
  report.hostCalls = services.CallCount() - startCalls;
  if (report.error) {
    tell(LoadFailed{report});
  } else {
    tell(LoadFinished{report});
  }
  return report;
}

void LoadSession::Drive(const LoadPlan& plan, LoadReport& report, const LoadEventSink& sink) {
  PluginDevice device(library, services, deviceName);
  (void)device.Initialize();
  device.StartLoad();

  RegionReport* region = nullptr;
  for (const ImageBlock& block : plan.blocks) {
    if (region == nullptr || region->region != block.region || block.address >= region->end) {
      if (region != nullptr) sink(RegionDone{*region});
      region =
          &*std::find_if(report.regions.begin(), report.regions.end(), [&](const RegionReport& candidate) {
            return candidate.region == block.region && block.address >= candidate.address &&
                   block.address < candidate.end;
          });
      sink(RegionStarted{*region});
    }
    region->outcome = RegionOutcome::Failed;  // stands when the block throws
    device.WriteBlock(block.address, block.data);
    region->outcome = RegionOutcome::Delivered;
  }
  if (region != nullptr) sink(RegionDone{*region});

  if (!plan.blocks.empty() && !device.HandlesVerification(plan.blocks.front().address)) {
    throw std::runtime_error(
        "the plug-in leaves verification to the host, and this host has nothing to verify with");
  }
  try {
    device.EndLoad();
  } catch (const std::exception&) {
    // MAIN flash and a user record were programmed as they came; which of the rest failed is in the text.
    for (RegionReport& stored : report.regions)
      if (stored.region != Region::Main && stored.region != Region::UserRecord)
        stored.outcome = RegionOutcome::Failed;
    throw;
  }
}

void JudgeVerification(LoadReport& report) {
  const auto said = [&](std::string_view line) {
    return std::any_of(report.messages.begin(), report.messages.end(),
                       [&](const LoadMessage& message) { return message.text == line; });
  };
  const auto stopsAt = [&](const Compared& compared) {
    return report.error ? report.error->starts_with(compared.refusal) : said(compared.failure);
  };

  for (RegionReport& region : report.regions) region.outcome = RegionOutcome::NotCompared;
  const bool isEqual = !report.error && said("Image Verification Succeeded!");
  const auto* const stop =
      isEqual ? s_compared.end() : std::find_if(s_compared.begin(), s_compared.end(), stopsAt);
  if (stop == s_compared.end() && !isEqual) {
    if (!report.error) report.error = "the plug-in ended the verification without an outcome";
    return;
  }
  for (const auto* compared = s_compared.begin(); compared != stop; ++compared)
    if (RegionReport* region = FindRegion(report, compared->region))
      region->outcome = RegionOutcome::Verified;
  if (isEqual) return;

  if (RegionReport* region = FindRegion(report, stop->region)) {
    region->outcome = RegionOutcome::Failed;
    if (!report.error) report.error = fmt::format("{} differs from the image", RegionName(stop->region));
    return;
  }
  report.error.reset();
  for (const auto* compared = stop; compared != s_compared.end(); ++compared) {
    if (FindRegion(report, compared->region) == nullptr) continue;
    report.error = fmt::format("{} was not compared: the images hold no {}, where the plug-in stops",
                               RegionName(compared->region), RegionName(stop->region));
    return;
  }
  report.note = fmt::format("the images hold no {}; it was not compared", RegionName(stop->region));
}

}  // namespace host
