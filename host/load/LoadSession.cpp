#include "host/load/LoadSession.h"

#include "host/load/LoadOutcome.h"

namespace host {

namespace {

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

// Watches the wire for as long as it lives, and tells of the progress that it sees.
class Follower final : public HostCallObserver {
 public:
  Follower(const LoadTarget& loadTarget, const LoadEventSink& eventSink)
      : target(loadTarget), sink(eventSink), startNs(loadTarget.probe.ElapsedNs()) {
    target.services.AddObserver(*this);
  }
  ~Follower() override { target.services.RemoveObserver(*this); }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  void Saw(const HostCall& call, std::uint64_t elapsedNs) override {
    const Phase before = watch.Present();
    const std::uint64_t bytes = watch.BytesWritten();
    watch.Saw(call, elapsedNs);
    if (!sink) return;
    if (watch.Present() != before) sink(PhaseStarted{watch.Present()});
    if (watch.BytesWritten() != bytes) sink(BytesMoved{watch.BytesWritten(), elapsedNs - startNs});
  }

  [[nodiscard]] const SaciWatch& Watch() const { return watch; }
  [[nodiscard]] std::uint64_t StartNs() const { return startNs; }

 private:
  const LoadTarget& target;
  const LoadEventSink& sink;
  std::uint64_t startNs;
  SaciWatch watch;
};

void Drive(const LoadTarget& target, const LoadPlan& plan, LoadCourse& course) {
  PluginDevice device(target.library, target.services, target.device.name);
  (void)device.Initialize();
  device.StartLoad();
  for (const ImageBlock& block : plan.blocks) {
    device.WriteBlock(block.address, block.data);
    ++course.blocksTaken;
  }
  if (!plan.blocks.empty() && !device.HandlesVerification(plan.blocks.front().address)) {
    throw std::runtime_error(
        "the plug-in leaves verification to the host, and this host has nothing to verify with");
  }
  device.EndLoad();
}

}  // namespace

void LoadSession::Run(const LoadPlan& plan, LoadRecord& record, const LoadEventSink& sink) {
  if (sink)
    sink(LoadPlanned{record.mode == LoadMode::Program ? EstimateWireBytes(plan, target.device.map) : 0});
  target.services.onMessage = [&](bool isError, const std::string& text) {
    record.messages.push_back({isError, text});
    if (sink) sink(record.messages.back());
  };
  const std::uint64_t startCalls = target.services.CallCount();
  LoadCourse course;
  const Follower follower(target, sink);
  try {
    Drive(target, plan, course);
  } catch (const std::exception& error) {
    course.error = error.what();
  }
  target.services.onMessage = nullptr;

  const SaciWatch& watch = follower.Watch();
  JudgeLoad(record, plan, target.device, watch, course);
  record.isInterrupted = target.services.IsCancelled();
  record.flashSize = target.settings.Get("DeviceInfoFlashSize");
  record.ramSize = target.settings.Get("DeviceInfoRAMSize");
  record.revision = target.settings.Get("DeviceInfoRevision");
  record.elapsedNs = target.probe.ElapsedNs() - follower.StartNs();
  for (std::size_t phase = 0; phase < kPhaseCount; ++phase) {
    record.phaseNs[phase] = watch.NsOf(static_cast<Phase>(phase));
    record.phaseBytes[phase] = watch.BytesOf(static_cast<Phase>(phase));
  }
  record.hostCalls = target.services.CallCount() - startCalls;
  record.wireBytes = watch.BytesWritten();
  if (sink) sink(LoadEnded{});
}

}  // namespace host
