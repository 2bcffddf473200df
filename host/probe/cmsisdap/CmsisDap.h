#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "host/device/AccessPorts.h"
#include "host/probe/ApAccess.h"
#include "host/probe/cmsisdap/PacketLink.h"
#include "host/probe/cmsisdap/PacketWindow.h"

namespace host {

// What a CMSIS-DAP probe says of itself. Texts that it does not give are empty.
struct DapIdentity {
  std::string product;
  std::string serial;
  std::string firmware;
  std::size_t packetSize = 0;  // bytes
  unsigned packetCount = 0;    // that the probe takes before it has answered the first
};

constexpr std::uint32_t kFastestWireHz = 10'000'000;

// How to drive a CMSIS-DAP probe.
struct PacketOptions {
  std::uint32_t wireHz = kFastestWireHz;
  std::optional<std::filesystem::path> trace = {};  // a line for each packet, see TracedLink
};

// A CMSIS-DAP probe: its packets, the start-up of the serial wire, and what is to be done when the chip's
// debug port answers WAIT, FAULT or nothing.
//
// Blocks are cut into packets of which as many are in flight as the probe takes. A word that is not taken
// because of WAIT does not keep the next packet's words from being written, so a block that fails is never
// resumed; a register is never read again for an answer that was lost.
//
// Where a word is fetched with a block, the block's last packets may still be in flight when it returns. If
// they fail, the next operation does in their place, unless it is one that begins anew.
class CmsisDap final : public ApAccess {
 public:
  // Asks the probe who it is. No frequency above the probe's own limit is reached.
  explicit CmsisDap(std::unique_ptr<PacketLink> cable, std::uint32_t wireHz = kFastestWireHz);

  [[nodiscard]] const DapIdentity& Identity() const { return identity; }

  void Connect() override;
  void Close() noexcept override;
  std::uint32_t ReadAp(ApRegister from) override;
  void WriteAp(ApRegister to, std::uint32_t value, AfterWrite after) override;
  void ReadApBlock(ApRegister from, std::span<std::uint32_t> words) override;
  void WriteApBlock(ApRegister to, std::span<const std::uint32_t> words) override;
  std::optional<Fetched> WriteApBlockAndFetch(ApRegister to, std::span<const std::uint32_t> words,
                                              const Offer& offer) override;
  void AwaitSent() noexcept override;
  void SetResetPin(bool high) override;

  [[nodiscard]] std::uint64_t NowNs() const override { return link->NowNs(); }
  void Sleep(std::uint32_t milliseconds) override { link->Sleep(milliseconds); }
  [[nodiscard]] Traffic Counted() const override { return window.Counted(); }
  [[nodiscard]] std::optional<std::uint32_t> WireHz() const override { return hertz; }

 private:
  class TransferList;

  void Identify();
  std::string InfoText(std::uint8_t id);
  std::uint32_t InfoNumber(std::uint8_t id);

  void SetUpProbe();
  enum class From { Anything, Dormancy };
  // False when the chip stays silent.
  bool WakeDebugPort(From state);
  void PowerUp();
  std::uint32_t ReadDp(std::uint8_t offset);
  void WriteDp(std::uint8_t offset, std::uint32_t value);
  // A command that is answered with a status.
  void Command(const PacketWriter& packet);
  void DriveBits(std::span<const std::uint8_t> bits, unsigned count);

  // Adds what brings the register into reach, if anything.
  void Select(TransferList& list, ApRegister at);
  void SelectNow(ApRegister at);
  [[nodiscard]] std::size_t WordsOfWrite() const;
  void SendBlock(ApRegister to, std::span<const std::uint32_t> words);
  // The word on offer is taken into `fetched`, which is waited for, if it is there by then.
  void SendLook(const Offer& offer, std::optional<Fetched>& fetched);
  // Takes the answers that a block has left, and fails as it would have.
  void Settle();
  // Leaves nothing in flight, and nothing known of the debug port.
  void BeginAnew() noexcept;
  // Runs accesses; what the debug port refuses is cleared away and thrown, with `what` as its object.
  template <typename Accesses>
  void Try(const std::string& what, Accesses&& accesses);
  [[noreturn]] void Refuse(std::uint8_t acknowledge, const std::string& what);

  std::unique_ptr<PacketLink> link;
  std::uint32_t hertz;
  PacketWindow window;
  DapIdentity identity;
  std::optional<std::uint32_t> selected;  // what the debug port's SELECT holds
  std::optional<ApRegister> unsettled;    // whose block has packets in flight
  bool isConnected = false;
};

// The probe at the end of a cable, with the registers' names for the trace. Throws InputError for a trace
// that cannot be written.
std::unique_ptr<CmsisDap> OverPackets(std::unique_ptr<PacketLink> cable, const PacketOptions& options,
                                      const AccessPorts& ports);

}  // namespace host
