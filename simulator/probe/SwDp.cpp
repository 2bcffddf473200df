#include "SwDp.h"

#include <utility>

namespace simulator {
namespace {

// Revision 0, part 0x54, minimal, version 1, a maker's code that is never given out.
constexpr std::uint32_t kDpidr = 0x0541'1FFF;

constexpr std::uint8_t kDpidrOrAbort = 0x0;
constexpr std::uint8_t kControlStatus = 0x4;
constexpr std::uint8_t kResendOrSelect = 0x8;
constexpr std::uint8_t kRdBuff = 0xC;

constexpr std::uint32_t kOverrunDetect = 1U << 0;
constexpr std::uint32_t kStickyOverrun = 1U << 1;
constexpr std::uint32_t kStickyError = 1U << 5;
constexpr std::uint32_t kReadOk = 1U << 6;
constexpr std::uint32_t kWriteDataError = 1U << 7;
constexpr std::uint32_t kPowerRequests = 1U << 28 | 1U << 30;  // debug and system; each answered one above
constexpr std::uint32_t kDebugPowerRequest = 1U << 28;
constexpr std::uint32_t kWritable = kOverrunDetect | kPowerRequests;

constexpr std::uint32_t kClearError = 1U << 2;  // in ABORT
constexpr std::uint32_t kClearDataError = 1U << 3;
constexpr std::uint32_t kClearOverrun = 1U << 4;

constexpr Nanoseconds kPowerUp = 50 * kMicrosecond;  // ours: long enough that a debugger has to look

}  // namespace

void SwDp::PowerOn() {
  identified = false;
  control = 0;
  accessError = dataError = overrun = readDone = false;
  select = buffer = sent = 0;
  ports.PowerDown();
}

Ack SwDp::Judge(std::uint8_t request) {
  if (!identified && request != kReadIdentification) return Ack::None;
  const auto address = static_cast<std::uint8_t>(request & kRequestAddress);
  const bool isRead = (request & kReadRequest) != 0;
  const bool isPort = (request & kPortRequest) != 0;
  const bool isStatus = isRead && (address == kDpidrOrAbort || address == kControlStatus);
  const bool isAbort = !isRead && address == kDpidrOrAbort;
  if (!isPort && (isStatus || isAbort)) return Ack::Ok;
  Ack ack = HasSticky() ? Ack::Fault : Ack::Ok;
  if (ack == Ack::Ok && (isPort || isRead)) ack = JudgePortAccess(request);  // RDBUFF and RESEND, too
  if (isRead && (isPort || address == kRdBuff)) readDone = ack == Ack::Ok;
  if (ack != Ack::Ok && DetectsOverruns()) overrun = true;
  return ack;
}

Ack SwDp::JudgePortAccess(std::uint8_t request) {
  using AccessFault = Faults::AccessFault;
  const AccessFault fault = faults.NextAccess();
  if (fault == AccessFault::Wait) return Ack::Wait;
  const bool isReachable = (request & kPortRequest) == 0 || HasPower();
  if (fault == AccessFault::None && isReachable) return Ack::Ok;
  accessError = true;
  return Ack::Fault;
}

std::uint32_t SwDp::Read(std::uint8_t request) {
  const auto address = static_cast<std::uint8_t>(request & kRequestAddress);
  if ((request & kPortRequest) != 0) return sent = ReadPort(address);
  switch (address) {
    case kDpidrOrAbort: identified = true; return kDpidr;
    case kControlStatus: return (select & 0xF) == 0 ? Status() : 0;  // other banks hold nothing
    case kRdBuff: return sent = buffer;
    default: return sent;
  }
}

void SwDp::Write(std::uint8_t request, std::uint32_t value) {
  const auto address = static_cast<std::uint8_t>(request & kRequestAddress);
  if ((request & kPortRequest) != 0) {
    if (!ports.Write(PortNumber(), PortOffset(address), value)) accessError = true;
    return;
  }
  switch (address) {
    case kDpidrOrAbort: Abort(value); return;
    case kControlStatus:
      if ((select & 0xF) == 0) WriteControl(value);
      return;
    case kResendOrSelect: select = value; return;
    default: return;
  }
}

std::uint32_t SwDp::ReadPort(std::uint8_t address) {
  const auto result = ports.Read(PortNumber(), PortOffset(address));
  if (!result) accessError = true;
  return std::exchange(buffer, result.value_or(0));
}

bool SwDp::DetectsOverruns() const {
  return (control & kOverrunDetect) != 0;
}

bool SwDp::HasPower() const {
  return (control & kPowerRequests) == kPowerRequests && clock.Now() >= powerAskedAt + kPowerUp;
}

std::uint32_t SwDp::Status() const {
  const bool isUp = clock.Now() >= powerAskedAt + kPowerUp;
  return control | (isUp ? (control & kPowerRequests) << 1 : 0) | (overrun ? kStickyOverrun : 0) |
         (accessError ? kStickyError : 0) | (readDone ? kReadOk : 0) | (dataError ? kWriteDataError : 0);
}

void SwDp::WriteControl(std::uint32_t value) {
  if ((value & ~control & kPowerRequests) != 0) powerAskedAt = clock.Now();
  control = value & kWritable;
  if ((control & kDebugPowerRequest) == 0) ports.PowerDown();
}

void SwDp::Abort(std::uint32_t value) {
  if ((value & kClearError) != 0) accessError = false;
  if ((value & kClearDataError) != 0) dataError = false;
  if ((value & kClearOverrun) != 0) overrun = false;
}

}  // namespace simulator
