#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "host/device/AccessPorts.h"
#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// A cable on which somebody listens: writes a line of text for each packet and each answer, taken apart as
// far as it says something about the chip, with the link's time in milliseconds.
//
//     12.3456 > TransferBlock write SECAP_TXDATA 126 words: 00010203 ...
//     12.9312 < TransferBlock 126 done, OK
//
// The words of a password are not written.
class TracedLink final : public PacketLink {
 public:
  // Registers have the names of `portMap`. Throws InputError when the file cannot be written.
  TracedLink(std::unique_ptr<PacketLink> cable, const std::filesystem::path& file, AccessPorts portMap);

  [[nodiscard]] std::size_t PacketSize() const override { return link->PacketSize(); }
  void SetPacketSize(std::size_t bytes) override { link->SetPacketSize(bytes); }
  void Send(std::span<const std::uint8_t> packet) override;
  std::optional<Packet> Receive(std::chrono::milliseconds timeout) override;
  [[nodiscard]] std::uint64_t NowNs() const override { return link->NowNs(); }
  void Sleep(std::uint32_t milliseconds) override { link->Sleep(milliseconds); }

 private:
  void Write(char direction, const std::string& text);
  std::string Tell(std::span<const std::uint8_t> packet);
  std::string TellTransfers(std::span<const std::uint8_t> packet);
  std::string TellBlock(std::span<const std::uint8_t> packet);
  std::string TellAnswer(std::span<const std::uint8_t> answer) const;
  // The register that a transfer's request goes to.
  [[nodiscard]] std::string RegisterOf(std::uint8_t request) const;
  // A word on its way to a register, as it may be written.
  std::string Written(const std::string& name, std::uint32_t word);

  const std::unique_ptr<PacketLink> link;
  const AccessPorts ports;
  std::ofstream out;
  std::uint32_t selected = 0;  // what the packets so far have put into SELECT
  bool nextIsHeader = false;   // of a command to the chip
  bool isPassword = false;     // what the command's words are
};

}  // namespace host
