#include "CmsisDapFirmware.h"

#include <algorithm>
#include <string_view>

namespace simulator {
namespace {

constexpr std::uint8_t kOk = 0x00;
constexpr std::uint8_t kError = 0xFF;
constexpr std::uint8_t kSwdPort = 1;

constexpr std::uint8_t kSwclkPin = 1U << 0;
constexpr std::uint8_t kSwdioPin = 1U << 1;
constexpr std::uint8_t kResetPin = 1U << 7;
constexpr std::uint32_t kLongestPinWait = 3'000'000;  // microseconds

constexpr std::uint8_t kCapabilities = 1U << 0 | 1U << 4 | 1U << 5;  // SWD, command lists, time stamps
constexpr std::uint32_t kTimestampHertz = 1'000'000;
constexpr std::size_t kLongestHeader = 4;  // of an answer, before anything that may be refused for its length

constexpr std::uint8_t kInfoCapabilities = 0xF0;
constexpr std::uint8_t kInfoTimestampClock = 0xF1;
constexpr std::uint8_t kInfoPacketCount = 0xFE;
constexpr std::uint8_t kInfoPacketSize = 0xFF;

struct InfoText {
  std::uint8_t id;
  std::string_view text;
};
constexpr InfoText s_infoTexts[] = {
    {0x01, "Tovik"},                      // vendor
    {0x02, "Tovik simulated CMSIS-DAP"},  // product
    {0x03, "SIM0001"},                    // serial number
    {0x04, "2.1.0"},                      // version of the protocol
    {0x09, "1.0.0"},                      // version of the firmware
};

std::uint8_t StatusOf(bool done) {
  return done ? kOk : kError;
}

}  // namespace

CmsisDapFirmware::CmsisDapFirmware(SwdTarget& attached, const ProbeSpeed& probeSpeed)
    : target(attached), speed(probeSpeed), wire(attached, probeSpeed.wireHz) {}

std::vector<std::uint8_t> CmsisDapFirmware::Execute(std::span<const std::uint8_t> request,
                                                    Nanoseconds abortAt) {
  PacketReader in(request);
  PacketWriter out(speed.packetSize);
  transfers.AbortAt(abortAt);
  if (request.empty())
    out.Byte(kInvalid);
  else if (request[0] == kQueueCommands || request[0] == kExecuteCommands)
    RunList(in, out);
  else
    Run(in, out);
  return out.Finish();
}

bool CmsisDapFirmware::Run(PacketReader& in, PacketWriter& out) {
  const std::uint8_t command = in.Byte();
  switch (command) {
    case kInfo: out.Byte(command); return Info(in, out);
    case kSwdSequence: out.Byte(command); return RunSwdSequences(in, out);
    case kTransfer:
    case kTransferBlock:
      out.Byte(command);
      if (isConnected)
        return command == kTransfer ? transfers.Transfer(in, out) : transfers.TransferBlock(in, out);
      out.Half(0);
      if (command == kTransferBlock) out.Byte(0);
      return false;
    case kPins:
      out.Byte(command);
      SetPins(in);
      out.Byte(Pins());
      return !in.IsShort();
    case kJtagSequence:
    case kJtagConfigure:
    case kJtagIdCode:
      out.Byte(command);
      out.Byte(kError);
      return false;
    default: break;
  }
  const auto answer = RunSimple(command, in);
  out.Byte(answer ? command : std::uint8_t{kInvalid});
  if (answer) out.Byte(*answer);
  if (command == kResetTarget) out.Byte(0);  // no sequence of our own for this target
  return answer && !in.IsShort();
}

// The commands that are answered with one byte. Nothing for what is no command.
std::optional<std::uint8_t> CmsisDapFirmware::RunSimple(std::uint8_t command, PacketReader& in) {
  switch (command) {
    case kHostStatus: {
      const std::uint8_t light = in.Byte();
      in.Byte();
      return StatusOf(!in.IsShort() && light <= 1);
    }
    case kConnect: {
      const std::uint8_t port = in.Byte();
      return in.IsShort() ? std::uint8_t{0} : Connect(port);
    }
    case kDisconnect: Disconnect(); return kOk;
    case kTransferConfigure: return StatusOf(ConfigureTransfers(in));
    case kWriteAbort: return StatusOf(WriteAbort(in));
    case kDelay: {
      const std::uint16_t microseconds = in.Half();
      if (!in.IsShort()) wire.Wait(microseconds * kMicrosecond);
      return StatusOf(!in.IsShort());
    }
    case kResetTarget: return kOk;
    case kClock: {
      const std::uint32_t hertz = in.Word();
      if (hertz == 0 || in.IsShort()) return kError;
      wire.SetFrequency(hertz);
      return kOk;
    }
    case kSequence: return StatusOf(DriveSequence(in));
    case kSwdConfigure: {
      const std::uint8_t bits = in.Byte();
      if (in.IsShort()) return kError;
      wire.SetFraming({.turnaround = (bits & 3U) + 1, .alwaysDataPhase = (bits & 4) != 0});
      return kOk;
    }
    default: return std::nullopt;
  }
}

void CmsisDapFirmware::RunList(PacketReader& in, PacketWriter& out) {
  out.Byte(in.Byte());
  const unsigned count = in.Byte();
  out.Byte(0);
  bool goesOn = true;
  for (unsigned done = 0; goesOn && done < count && in.Left() > 0 && out.Room() >= kLongestHeader; ++done) {
    goesOn = Run(in, out);
    out.Set(1, static_cast<std::uint8_t>(done + 1));
  }
}

bool CmsisDapFirmware::Info(PacketReader& in, PacketWriter& out) {
  const std::uint8_t id = in.Byte();
  const std::size_t length = out.Size();
  out.Byte(0);
  for (const InfoText& info : s_infoTexts) {
    if (info.id != id || out.Room() <= info.text.size()) continue;
    for (const char character : info.text) out.Byte(static_cast<std::uint8_t>(character));
    out.Byte(0);
  }
  if (out.Room() >= 4) {
    switch (id) {
      case kInfoCapabilities: out.Byte(kCapabilities); break;
      case kInfoTimestampClock: out.Word(kTimestampHertz); break;
      case kInfoPacketCount: out.Byte(speed.packetCount); break;
      case kInfoPacketSize: out.Half(static_cast<std::uint16_t>(speed.packetSize)); break;
      default: break;
    }
  }
  out.Set(length, static_cast<std::uint8_t>(out.Size() - length - 1));
  return !in.IsShort();
}

std::uint8_t CmsisDapFirmware::Connect(std::uint8_t port) {
  if (port > kSwdPort) return 0;  // no JTAG
  isConnected = true;
  clockPin = dataPin = true;
  return kSwdPort;
}

// The pins are let go, and the board pulls reset up.
void CmsisDapFirmware::Disconnect() {
  isConnected = false;
  target.ports.SetResetPin(true);
}

bool CmsisDapFirmware::ConfigureTransfers(PacketReader& in) {
  const std::uint8_t idleClocks = in.Byte();
  const std::uint16_t waitRetries = in.Half();
  const std::uint16_t matchRetries = in.Half();
  if (in.IsShort()) return false;
  wire.SetIdleClocks(idleClocks);
  transfers.Configure({.waitRetries = waitRetries, .matchRetries = matchRetries});
  return true;
}

bool CmsisDapFirmware::WriteAbort(PacketReader& in) {
  constexpr std::uint8_t kAbortRegister = 0;
  in.Byte();
  std::uint32_t value = in.Word();
  return !in.IsShort() && isConnected && transfers.Access(kAbortRegister, value) == Ack::Ok;
}

void CmsisDapFirmware::SetPins(PacketReader& in) {
  const std::uint8_t wanted = in.Byte();
  const std::uint8_t selected = in.Byte();
  const std::uint32_t wait = std::min(in.Word(), kLongestPinWait);
  if (in.IsShort() || !isConnected) return;
  if ((selected & kSwdioPin) != 0) dataPin = (wanted & kSwdioPin) != 0;
  if ((selected & kSwclkPin) != 0) {
    const bool rises = !clockPin && (wanted & kSwclkPin) != 0;
    clockPin = (wanted & kSwclkPin) != 0;
    if (rises) target.line.Clock(dataPin);
  }
  if ((selected & kResetPin) != 0) target.ports.SetResetPin((wanted & kResetPin) != 0);
  // Pins follow at once. One that we do not have stays low for as long as one likes to wait.
  if (((Pins() ^ wanted) & selected) != 0) wire.Wait(wait * kMicrosecond);
}

std::uint8_t CmsisDapFirmware::Pins() const {
  return static_cast<std::uint8_t>((clockPin ? kSwclkPin : 0U) | (dataPin ? kSwdioPin : 0U) |
                                   (target.ports.IsResetPinHigh() ? kResetPin : 0U));
}

bool CmsisDapFirmware::DriveSequence(PacketReader& in) {
  const std::uint8_t count = in.Byte();
  const unsigned bits = count == 0 ? 256 : count;
  const auto bytes = in.Bytes((bits + 7) / 8);
  if (in.IsShort() || !isConnected) return false;
  wire.Drive(bytes, bits);
  return true;
}

bool CmsisDapFirmware::RunSwdSequences(PacketReader& in, PacketWriter& out) {
  constexpr std::uint8_t kSample = 0x80;
  constexpr std::uint8_t kCount = 0x3F;
  const std::size_t status = out.Size();
  out.Byte(kError);
  for (unsigned left = in.Byte(); left > 0; --left) {
    const std::uint8_t what = in.Byte();
    const unsigned bits = (what & kCount) == 0 ? 64 : what & kCount;
    const std::size_t length = (bits + 7) / 8;
    const bool samples = (what & kSample) != 0;
    const auto bytes = in.Bytes(samples ? 0 : length);
    if (in.IsShort() || !isConnected || (samples && out.Room() < length)) return false;
    if (samples)
      wire.Sample(out, bits);
    else
      wire.Drive(bytes, bits);
  }
  if (!in.IsShort()) out.Set(status, kOk);
  return !in.IsShort();
}

}  // namespace simulator
