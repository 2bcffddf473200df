#include "host/probe/simulated/SimulatedLink.h"

#include <fmt/format.h>

#include <stdexcept>
#include <thread>
#include <utility>

#include "host/device/InputError.h"
#include "host/probe/ProbeError.h"

namespace host {

namespace {

// What the transport throws is that the probe has gone.
template <typename Access>
auto Plugged(Access&& access) {
  try {
    return std::forward<Access>(access)();
  } catch (const std::runtime_error& error) {
    throw ProbeError(ProbeError::Kind::Unplugged, error.what());
  }
}

}  // namespace

SimulatedLink::SimulatedLink(simulator::SwdTarget& target, const simulator::ProbeSpeed& speed, Pace pace)
    : transport(target, speed) {
  if (pace == Pace::RealTime)
    realStart = std::chrono::steady_clock::now() - std::chrono::nanoseconds(transport.HostNow());
}

void SimulatedLink::Send(std::span<const std::uint8_t> packet) {
  Plugged([&] { transport.Send(packet); });
}

std::optional<Packet> SimulatedLink::Receive(std::chrono::milliseconds timeout) {
  const std::chrono::nanoseconds span = timeout;
  auto answer = Plugged([&] { return transport.Receive(static_cast<simulator::Nanoseconds>(span.count())); });
  KeepPace();
  return answer;
}

void SimulatedLink::Sleep(std::uint32_t milliseconds) {
  transport.Sleep(milliseconds);
  KeepPace();
}

simulator::ProbeSpeed NamedSpeed(std::string_view name) {
  if (const auto speed = simulator::FindProbeSpeed(name)) return *speed;
  throw InputError(fmt::format("there is no probe \"sim:{}\": sim:hs, sim:fs and sim:hid are known", name));
}

// Time that nobody spent at the probe is not made up for.
void SimulatedLink::KeepPace() {
  if (!realStart) return;
  const auto due = *realStart + std::chrono::nanoseconds(NowNs());
  const auto now = std::chrono::steady_clock::now();
  if (due > now) std::this_thread::sleep_until(due);
  if (now > due) *realStart += now - due;
}

}  // namespace host
