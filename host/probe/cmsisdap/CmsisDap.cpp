#include "host/probe/cmsisdap/CmsisDap.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/probe/cmsisdap/TracedLink.h"

namespace host {

namespace {

constexpr std::uint8_t kInfoProduct = 0x02;
constexpr std::uint8_t kInfoSerial = 0x03;
constexpr std::uint8_t kInfoFirmware = 0x09;
constexpr std::uint8_t kInfoCapabilities = 0xF0;
constexpr std::uint8_t kInfoPacketCount = 0xFE;
constexpr std::uint8_t kInfoPacketSize = 0xFF;
constexpr std::uint32_t kHasSerialWire = 1U << 0;
constexpr std::size_t kSmallestPacket = 64;
constexpr std::size_t kLargestPacket = 32768;

constexpr std::uint8_t kSerialWire = 1;  // of DAP_Connect

// The probe tries an access that was answered WAIT this often again, and looks this often whether a word is
// on offer: for some 0.1 ms at 10 MHz, in which the chip answers its short commands. Any longer would be
// spent in vain behind every command whose parameters are still to come.
constexpr std::uint16_t kWaitRetries = 0xFFFF;
constexpr std::uint16_t kOfferRetries = 20;

// The debug port's registers, and what is in them.
constexpr std::uint8_t kDpidr = 0x0;
constexpr std::uint8_t kControlStatus = 0x4;
constexpr std::uint8_t kAbort = 0x0;
constexpr std::uint8_t kSelect = 0x8;
constexpr std::uint32_t kPowerRequests = 0x5000'0000;
constexpr std::uint32_t kPowerAcknowledges = 0xA000'0000;
constexpr std::uint32_t kAbortAccess = 1U << 0;
constexpr std::uint32_t kClearSticky = 0x1E;
constexpr int kPowerPolls = 100;

// The acknowledgement of the last transfer, as the probe tells it; 0: there was none.
constexpr std::uint8_t kOk = 1;
constexpr std::uint8_t kWait = 2;
constexpr std::uint8_t kFault = 4;
constexpr std::uint8_t kMismatch = 1U << 4;
constexpr std::uint8_t kWireBits = 0x0F;  // the wire's three, and a parity error

constexpr std::uint8_t kResetPin = 1U << 7;
constexpr std::uint32_t kPinRiseUs = 100'000;

constexpr std::size_t kWord = 4;
constexpr std::size_t kBlockWriteHeader = 5;
constexpr std::size_t kBlockReadHeader = 4;

// What the debug port answered, on its way to whoever clears up.
struct Refused {
  std::uint8_t acknowledge;
};

std::uint8_t PortRequest(ApRegister at, std::uint8_t flags) {
  return static_cast<std::uint8_t>(kPort | flags | (at.offset & kRegister));
}

std::uint32_t SelectOf(ApRegister at) {
  return std::uint32_t{at.port} << 24 | (at.offset & 0xF0U);
}

std::string StickyBits(std::uint32_t status) {
  const struct {
    std::uint32_t bit;
    const char* name;
  } bits[] = {{1U << 1, "STICKYORUN"}, {1U << 4, "STICKYCMP"}, {1U << 5, "STICKYERR"}, {1U << 7, "WDATAERR"}};
  std::string names;
  for (const auto& [bit, name] : bits)
    if ((status & bit) != 0) names += std::string(" ") + name;
  return names.empty() ? " no sticky bit" : names;
}

// Checks how many of how many transfers were done, and the last acknowledgement.
void RequireDone(std::size_t done, std::size_t wanted, std::uint8_t acknowledge) {
  if ((acknowledge & kWireBits) != kOk) throw Refused{acknowledge};
  if (done > wanted)
    throw ProbeError(ProbeError::Kind::BadAnswer,
                     fmt::format("the debug probe answered for {} transfers where {} were asked of it: "
                                 "unplug the probe and plug it in again",
                                 done, wanted));
  if (done != wanted)
    throw ProbeError(ProbeError::Kind::BadAnswer,
                     fmt::format("the debug probe made {} transfers of {} and tells no reason: "
                                 "update the probe's firmware",
                                 done, wanted));
}

}  // namespace

// A DAP_Transfer: a list of single accesses.
class CmsisDap::TransferList {
 public:
  TransferList() { packet.Byte(0).Byte(0); }

  void Read(std::uint8_t request) { Add(request | kRead); }
  void Write(std::uint8_t request, std::uint32_t value) {
    Add(request);
    packet.Word(value);
  }
  // The list goes on only where the register has the mask's bits within the probe's retries.
  void Match(std::uint8_t request, std::uint32_t mask) {
    Write(kMatchMask, mask);
    Add(request | kRead | kMatchValue);
    packet.Word(mask);
  }

  [[nodiscard]] std::size_t Count() const { return count; }
  const PacketWriter& Finish() {
    packet.Set(2, count);
    return packet;
  }

 private:
  void Add(unsigned request) {
    packet.Byte(request);
    ++count;
  }

  PacketWriter packet{DapCommand::Transfer};
  std::uint8_t count = 0;
};

std::unique_ptr<CmsisDap> OverPackets(std::unique_ptr<PacketLink> cable, const PacketOptions& options,
                                      const AccessPorts& ports) {
  if (options.trace) cable = std::make_unique<TracedLink>(std::move(cable), *options.trace, ports);
  return std::make_unique<CmsisDap>(std::move(cable), options.wireHz);
}

CmsisDap::CmsisDap(std::unique_ptr<PacketLink> cable, std::uint32_t wireHz)
    : link(std::move(cable)), hertz(wireHz), window(*link, *this) {
  Identify();
}

void CmsisDap::Identify() {
  identity.product = InfoText(kInfoProduct);
  identity.serial = InfoText(kInfoSerial);
  identity.firmware = InfoText(kInfoFirmware);
  identity.packetSize = InfoNumber(kInfoPacketSize);
  identity.packetCount = std::max(1U, InfoNumber(kInfoPacketCount));
  if (identity.packetSize < kSmallestPacket || identity.packetSize > kLargestPacket)
    throw ProbeError(ProbeError::Kind::BadAnswer,
                     fmt::format("the debug probe says that its packets have {} bytes: "
                                 "update the probe's firmware",
                                 identity.packetSize));
  if ((InfoNumber(kInfoCapabilities) & kHasSerialWire) == 0)
    throw ProbeError(ProbeError::Kind::NoProbe, "the debug probe has no serial wire: take one that has");
  link->SetPacketSize(identity.packetSize);
  window.SetLimit(identity.packetCount);
}

std::string CmsisDap::InfoText(std::uint8_t id) {
  std::string text;
  window.Send(PacketWriter(DapCommand::Info).Byte(id), [&](AnswerReader& answer) {
    const auto characters = answer.Bytes(answer.Byte());
    text.assign(characters.begin(), std::find(characters.begin(), characters.end(), 0));
  });
  window.Finish();
  return text;
}

std::uint32_t CmsisDap::InfoNumber(std::uint8_t id) {
  std::uint32_t number = 0;
  window.Send(PacketWriter(DapCommand::Info).Byte(id), [&](AnswerReader& answer) {
    switch (answer.Byte()) {
      case 0: return;
      case 1: number = answer.Byte(); return;
      default: number = answer.Half(); return;
    }
  });
  window.Finish();
  return number;
}

void CmsisDap::Connect() {
  BeginAnew();
  SetUpProbe();
  isConnected = true;
  if (!WakeDebugPort(From::Anything) && !WakeDebugPort(From::Dormancy))
    throw ProbeError(ProbeError::Kind::NoTarget,
                     "the chip does not answer the debug probe: see to its power and to the wires");
  Try("the debug port", [&] { PowerUp(); });
}

void CmsisDap::SetUpProbe() {
  window.Send(PacketWriter(DapCommand::Connect).Byte(kSerialWire), [](AnswerReader& answer) {
    if (answer.Byte() != kSerialWire)
      throw ProbeError(ProbeError::Kind::NoProbe,
                       "the debug probe cannot switch to its serial wire: take another one");
  });
  Command(PacketWriter(DapCommand::Clock).Word(hertz));
  Command(PacketWriter(DapCommand::TransferConfigure).Byte(0).Half(kWaitRetries).Half(kOfferRetries));
  Command(PacketWriter(DapCommand::SwdConfigure).Byte(0));
  window.Finish();
}

// Out of JTAG where it listens to that, with a line reset before and after.
bool CmsisDap::WakeDebugPort(From state) {
  constexpr std::uint8_t kAlert[] = {0xFF, 0x92, 0xF3, 0x09, 0x62, 0x95, 0x2D, 0x85, 0x86,
                                     0xE9, 0xAF, 0xDD, 0xE3, 0xA2, 0x0E, 0xBC, 0x19};
  constexpr std::uint8_t kActivation[] = {0xA0, 0x01};
  constexpr std::uint8_t kJtagToSerialWire[] = {0x9E, 0xE7};
  constexpr std::uint8_t kLineReset[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
  if (state == From::Dormancy) {
    DriveBits(kAlert, 136);
    DriveBits(kActivation, 12);
  }
  DriveBits(kLineReset, 56);
  DriveBits(kJtagToSerialWire, 16);
  DriveBits(kLineReset, 64);
  try {
    (void)ReadDp(kDpidr);  // nothing else is answered first
    return true;
  } catch (const Refused&) {
    return false;
  }
}

void CmsisDap::PowerUp() {
  WriteDp(kAbort, kClearSticky);
  WriteDp(kSelect, 0);
  WriteDp(kControlStatus, kPowerRequests);
  for (int polls = 0; polls < kPowerPolls; ++polls) {
    if ((ReadDp(kControlStatus) & kPowerAcknowledges) == kPowerAcknowledges) {
      selected = 0;
      return;
    }
    RequireGoingOn();
    Sleep(1);
  }
  throw ProbeError(ProbeError::Kind::NoTarget,
                   "the chip does not power up its debug port: turn the chip off and on again");
}

void CmsisDap::Close() noexcept {
  ForgetCancel();
  if (!std::exchange(isConnected, false)) return;
  BeginAnew();
  try {
    WriteDp(kControlStatus, 0);
  } catch (...) {
  }
  try {
    Command(PacketWriter(DapCommand::Disconnect));
    window.Finish();
  } catch (...) {
  }
}

std::uint32_t CmsisDap::ReadAp(ApRegister from) {
  Settle();
  std::uint32_t value = 0;
  Try(NameOf(from), [&] {
    TransferList list;
    Select(list, from);
    list.Read(PortRequest(from, 0));
    window.Send(list.Finish(), [&, wanted = list.Count()](AnswerReader& answer) {
      const std::uint8_t done = answer.Byte();
      RequireDone(done, wanted, answer.Byte());
      value = answer.Word();
    });
    window.Finish();
  });
  return value;
}

void CmsisDap::WriteAp(ApRegister to, std::uint32_t value, AfterWrite after) {
  Settle();
  Try(NameOf(to), [&] {
    TransferList list;
    Select(list, to);
    list.Write(PortRequest(to, 0), value);
    window.Send(list.Finish(), [&, wanted = list.Count()](AnswerReader& answer) {
      const std::uint8_t done = answer.Byte();
      const std::uint8_t acknowledge = answer.Byte();
      // Behind the last write the probe asks whether it went well, and that question stays without an answer.
      if (after == AfterWrite::MayBeSilent && done == wanted && (acknowledge & 7) == 7)
        selected.reset();
      else
        RequireDone(done, wanted, acknowledge);
    });
    window.Finish();
  });
}

void CmsisDap::ReadApBlock(ApRegister from, std::span<std::uint32_t> words) {
  Settle();
  Try(NameOf(from), [&] {
    SelectNow(from);
    const std::size_t fits = (identity.packetSize - kBlockReadHeader) / kWord;
    for (std::size_t at = 0; at < words.size(); at += fits) {
      const auto part = words.subspan(at, std::min(fits, words.size() - at));
      PacketWriter packet(DapCommand::TransferBlock);
      packet.Byte(0).Half(static_cast<std::uint32_t>(part.size())).Byte(PortRequest(from, kRead));
      window.Send(packet, [part](AnswerReader& answer) {
        const std::uint16_t done = answer.Half();
        RequireDone(done, part.size(), answer.Byte());
        for (std::uint32_t& word : part) word = answer.Word();
      });
    }
    window.Finish();
  });
}

void CmsisDap::WriteApBlock(ApRegister to, std::span<const std::uint32_t> words) {
  Settle();
  Try(NameOf(to), [&] {
    SendBlock(to, words);
    window.Finish();
  });
}

// In a block of many packets the look goes ahead of the last ones, of at most half of the block: they keep
// the probe busy until the next block comes. What the chip says after so long has to do with what came before
// the block. Where it says nothing, a second look follows behind the block.
std::optional<ApAccess::Fetched> CmsisDap::WriteApBlockAndFetch(ApRegister to,
                                                                std::span<const std::uint32_t> words,
                                                                const Offer& offer) {
  if (SelectOf(offer.flags) != SelectOf(to) || SelectOf(offer.data) != SelectOf(to)) {
    WriteApBlock(to, words);
    return std::nullopt;
  }
  if (unsettled != to) Settle();
  unsettled.reset();
  std::optional<Fetched> fetched;
  Try(NameOf(to), [&] {
    const std::size_t fits = WordsOfWrite();
    const std::size_t behind = std::min<std::size_t>(identity.packetCount - 1, words.size() / 2 / fits);
    SendBlock(to, words.first(words.size() - behind * fits));
    SendLook(offer, fetched);
    SendBlock(to, words.last(behind * fits));
    window.Finish(behind);
    if (fetched || behind == 0) return;
    SendLook(offer, fetched);
    window.Finish();
  });
  if (fetched) unsettled = to;
  return fetched;
}

void CmsisDap::SendLook(const Offer& offer, std::optional<Fetched>& fetched) {
  TransferList list;
  list.Match(PortRequest(offer.flags, 0), offer.mask);
  list.Read(PortRequest(offer.flags, 0));
  list.Read(PortRequest(offer.data, 0));
  window.Send(list.Finish(), [&fetched, wanted = list.Count()](AnswerReader& answer) {
    const std::uint8_t done = answer.Byte();
    const std::uint8_t acknowledge = answer.Byte();
    if (acknowledge == (kOk | kMismatch)) return;
    RequireDone(done, wanted, acknowledge);
    const std::uint32_t flags = answer.Word();
    fetched = {flags, answer.Word()};
  });
}

std::size_t CmsisDap::WordsOfWrite() const {
  return (identity.packetSize - kBlockWriteHeader) / kWord;
}

// The packet that is not full goes first: the sooner it is answered, the sooner the next one is on its way.
void CmsisDap::SendBlock(ApRegister to, std::span<const std::uint32_t> words) {
  SelectNow(to);
  const std::size_t fits = WordsOfWrite();
  for (std::size_t count = words.size() % fits; !words.empty(); count = fits) {
    if (count == 0) continue;
    PacketWriter packet(DapCommand::TransferBlock);
    packet.Byte(0).Half(static_cast<std::uint32_t>(count)).Byte(PortRequest(to, 0));
    for (const std::uint32_t word : words.first(count)) packet.Word(word);
    window.Send(packet, [count](AnswerReader& answer) {
      const std::uint16_t done = answer.Half();
      RequireDone(done, count, answer.Byte());
    });
    words = words.subspan(count);
  }
}

void CmsisDap::Settle() {
  if (const auto to = std::exchange(unsettled, std::nullopt)) Try(NameOf(*to), [&] { window.Finish(); });
}

void CmsisDap::AwaitSent() noexcept {
  try {
    Settle();
  } catch (...) {
  }
}

void CmsisDap::BeginAnew() noexcept {
  window.Drop();
  unsettled.reset();
  selected.reset();
}

void CmsisDap::SetResetPin(bool high) {
  PacketWriter packet(DapCommand::Pins);
  packet.Byte(high ? kResetPin : 0U).Byte(kResetPin).Word(high ? kPinRiseUs : 0);
  BeginAnew();
  window.Send(packet, [high](AnswerReader& answer) {
    if (high && (answer.Byte() & kResetPin) == 0)
      throw ProbeError(ProbeError::Kind::NoTarget, "the chip's reset pin stays low: see what else holds it");
  });
  window.Finish();
}

void CmsisDap::Select(TransferList& list, ApRegister at) {
  if (selected == SelectOf(at)) return;
  list.Write(kSelect, SelectOf(at));
  selected = SelectOf(at);
}

void CmsisDap::SelectNow(ApRegister at) {
  if (selected != SelectOf(at)) WriteDp(kSelect, SelectOf(at));
  selected = SelectOf(at);
}

std::uint32_t CmsisDap::ReadDp(std::uint8_t offset) {
  TransferList list;
  list.Read(offset);
  std::uint32_t value = 0;
  window.Send(list.Finish(), [&](AnswerReader& answer) {
    const std::uint8_t done = answer.Byte();
    RequireDone(done, 1, answer.Byte());
    value = answer.Word();
  });
  window.Finish();
  return value;
}

// Its answer is taken with the next that is waited for.
void CmsisDap::WriteDp(std::uint8_t offset, std::uint32_t value) {
  TransferList list;
  list.Write(offset, value);
  window.Send(list.Finish(), [](AnswerReader& answer) {
    const std::uint8_t done = answer.Byte();
    RequireDone(done, 1, answer.Byte());
  });
}

void CmsisDap::Command(const PacketWriter& packet) {
  const unsigned command = packet.Written()[0];
  window.Send(packet, [command](AnswerReader& answer) {
    if (answer.Byte() != 0)
      throw ProbeError(ProbeError::Kind::BadAnswer,
                       fmt::format("the debug probe refuses CMSIS-DAP's command 0x{:02x}: "
                                   "update the probe's firmware",
                                   command));
  });
}

void CmsisDap::DriveBits(std::span<const std::uint8_t> bits, unsigned count) {
  Command(PacketWriter(DapCommand::Sequence).Byte(count).Bytes(bits.first((count + 7) / 8)));
}

template <typename Accesses>
void CmsisDap::Try(const std::string& what, Accesses&& accesses) {
  try {
    std::forward<Accesses>(accesses)();
  } catch (const Refused& refused) {
    selected.reset();
    Refuse(refused.acknowledge, what);
  } catch (...) {
    selected.reset();
    throw;
  }
}

// Leaves the debug port ready for the next access, as well as that still works.
void CmsisDap::Refuse(std::uint8_t acknowledge, const std::string& what) {
  std::uint32_t status = 0;
  try {
    if ((acknowledge & 7) == kFault) status = ReadDp(kControlStatus);
    const std::uint32_t abort = (acknowledge & 7) == kWait ? kAbortAccess : kClearSticky;
    Command(PacketWriter(DapCommand::WriteAbort).Byte(0).Word(abort));
    window.Finish();
  } catch (...) {  // what was refused is what counts
  }
  switch (acknowledge & 7) {
    case kWait:
      throw ProbeError(ProbeError::Kind::Wait,
                       fmt::format("the chip is busy with {} for too long (WAIT): reset the chip", what));
    case kFault:
      throw ProbeError(ProbeError::Kind::Fault, fmt::format("the chip refuses {} (FAULT,{}): reset the chip",
                                                            what, StickyBits(status)));
    default:
      throw ProbeError(
          ProbeError::Kind::NoTarget,
          fmt::format("the chip does not answer at {}: see to its power and to the wires", what));
  }
}

}  // namespace host
