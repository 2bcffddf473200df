#include "DapTransfers.h"

namespace simulator {
namespace {

// A transfer's byte: the request of the wire in bits 3-0, and above
constexpr std::uint8_t kMatchValue = 1U << 4;  // read until the masked value is this one
constexpr std::uint8_t kMatchMask = 1U << 5;   // a write that only sets the mask
constexpr std::uint8_t kTimestamp = 1U << 7;
constexpr std::uint8_t kRequestMask = 0x0F;

// A response's acknowledgement: the wire's in bits 2-0, and
constexpr std::uint8_t kMismatch = 1U << 4;

constexpr std::size_t kWord = 4;

}  // namespace

Ack DapTransfers::Access(std::uint8_t request, std::uint32_t& data) {
  unsigned retries = settings.waitRetries;
  for (;;) {
    const Ack ack = wire.Transfer(request, data);
    if (ack != Ack::Wait || retries-- == 0 || IsAborted()) return ack;
  }
}

// One DAP_Transfer on its way.
class DapTransfers::List {
 public:
  List(DapTransfers& owner, PacketWriter& response) : dap(owner), out(response) {}

  // Whether the words that come of the transfer fit the response, with those still owed.
  [[nodiscard]] bool Fits(std::uint8_t transfer) const {
    const std::size_t words =
        std::size_t{posted} + std::size_t{IsPlainRead(transfer)} + std::size_t{(transfer & kTimestamp) != 0};
    return out.Room() >= kWord * words;
  }
  // False when the list ends here: the transfer does not count.
  bool Run(std::uint8_t transfer, std::uint32_t operand) {
    const bool readsPort = IsPlainRead(transfer) && (transfer & kPortRequest) != 0;
    if (posted && !readsPort && !Collect()) return false;
    if ((transfer & kReadRequest) == 0) return Write(transfer, operand);
    if ((transfer & kMatchValue) != 0) return Match(transfer, operand);
    return readsPort ? ReadPort(transfer) : ReadDebugPort(transfer);
  }
  // Behind the last transfer of a list that went well: what is owed, or the check of the last write.
  void Finish() {
    if (posted)
      Collect();
    else if (unchecked)
      Try(kReadBuffer);
  }
  [[nodiscard]] std::uint8_t Status() const {
    return static_cast<std::uint8_t>(static_cast<unsigned>(ack) | (mismatch ? kMismatch : 0U));
  }

 private:
  static bool IsPlainRead(std::uint8_t transfer) {
    return (transfer & kReadRequest) != 0 && (transfer & kMatchValue) == 0;
  }
  bool Try(std::uint8_t transfer, std::uint32_t operand = 0) {
    word = operand;
    ack = dap.Access(transfer & kRequestMask, word);
    unchecked = false;
    return ack == Ack::Ok;
  }
  void Stamp(std::uint8_t transfer) {
    if ((transfer & kTimestamp) != 0) out.Word(static_cast<std::uint32_t>(dap.wire.Now() / kMicrosecond));
  }
  bool Collect() {
    posted = false;
    if (!Try(kReadBuffer)) return false;
    out.Word(word);
    return true;
  }
  bool Write(std::uint8_t transfer, std::uint32_t operand) {
    if ((transfer & kMatchMask) != 0) {
      dap.matchMask = operand;
      ack = Ack::Ok;
      return true;
    }
    if (!Try(transfer, operand)) return false;
    unchecked = true;
    Stamp(transfer);
    return true;
  }
  bool Match(std::uint8_t transfer, std::uint32_t value) {
    if ((transfer & kPortRequest) != 0 && !Try(transfer)) return false;
    for (unsigned retries = dap.settings.matchRetries;; --retries) {
      if (!Try(transfer)) return false;
      if ((word & dap.matchMask) == value) break;
      mismatch = retries == 0 || dap.IsAborted();
      if (mismatch) return false;
    }
    Stamp(transfer);
    return true;
  }
  bool ReadPort(std::uint8_t transfer) {
    if (!Try(transfer)) return false;
    if (posted) out.Word(word);  // of the read before
    posted = true;
    Stamp(transfer);
    return true;
  }
  bool ReadDebugPort(std::uint8_t transfer) {
    if (!Try(transfer)) return false;
    Stamp(transfer);
    out.Word(word);
    return true;
  }

  DapTransfers& dap;
  PacketWriter& out;
  Ack ack{};               // none yet
  std::uint32_t word{};    // written or read last
  bool posted = false;     // a port has been read, its word has not been fetched
  bool unchecked = false;  // nothing has shown yet whether the last write went well
  bool mismatch = false;
};

bool DapTransfers::Transfer(PacketReader& in, PacketWriter& out) {
  in.Byte();  // which of several targets on a JTAG chain
  const unsigned count = in.Byte();
  const std::size_t header = out.Size();
  out.Half(0);
  List list(*this, out);
  std::uint8_t done = 0;
  bool runs = true;
  // What is not carried out any more is still read: another command may follow it.
  for (unsigned i = 0; i < count; ++i) {
    const std::uint8_t transfer = in.Byte();
    const bool hasOperand = (transfer & kReadRequest) == 0 || (transfer & kMatchValue) != 0;
    const std::uint32_t operand = hasOperand ? in.Word() : 0;
    runs = runs && !in.IsShort() && list.Fits(transfer) && !IsAborted() && list.Run(transfer, operand);
    if (runs) ++done;
  }
  if (list.Status() == static_cast<std::uint8_t>(Ack::Ok)) list.Finish();
  out.Set(header, done);
  out.Set(header + 1, list.Status());
  return !in.IsShort();
}

bool DapTransfers::TransferBlock(PacketReader& in, PacketWriter& out) {
  in.Byte();
  const std::size_t count = in.Half();
  const std::uint8_t request = in.Byte() & kRequestMask;
  const bool isRead = (request & kReadRequest) != 0;
  const bool isPort = (request & kPortRequest) != 0;
  PacketReader words(in.Bytes(isRead ? 0 : kWord * count));
  const std::size_t header = out.Size();
  out.Half(0);
  out.Byte(0);
  if (in.IsShort() || count == 0 || (isRead && out.Room() < kWord * count)) return !in.IsShort();

  Ack ack = Ack::Ok;
  std::uint32_t data = 0;
  std::size_t done = 0;
  if (isRead && isPort) ack = Access(request, data);
  for (; ack == Ack::Ok && done < count && !IsAborted(); ++done) {
    if (!isRead) data = words.Word();
    const bool isLastPosted = isRead && isPort && done + 1 == count;
    ack = Access(isLastPosted ? kReadBuffer : request, data);
    if (ack != Ack::Ok) break;
    if (isRead) out.Word(data);
  }
  if (!isRead && ack == Ack::Ok) ack = Access(kReadBuffer, data);
  out.Set(header, static_cast<std::uint8_t>(done));
  out.Set(header + 1, static_cast<std::uint8_t>(done >> 8));
  out.Set(header + 2, static_cast<std::uint8_t>(ack));
  return true;
}

}  // namespace simulator
