#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// The cable to a probe with bulk endpoints: CMSIS-DAP version 2. A place for the answer is made before the
// packet goes, so that a probe that can hold but one answer is never stuck with it.
class UsbBulkLink final : public PacketLink {
 public:
  struct Found {
    std::string place;  // on the bus, as the kernel writes it: "1-2.3"
    std::string serial;
    std::string product;
    std::uint8_t interface = 0;
    std::uint8_t outEndpoint = 0;
    std::uint8_t inEndpoint = 0;
  };
  // The devices with an interface that is called CMSIS-DAP, open to us or not.
  static std::vector<Found> Find();

  // Throws ProbeError when it cannot be opened.
  explicit UsbBulkLink(const Found& device);
  ~UsbBulkLink() override;

  [[nodiscard]] std::size_t PacketSize() const override { return packetSize; }
  void SetPacketSize(std::size_t bytes) override { packetSize = bytes; }
  void Send(std::span<const std::uint8_t> packet) override;
  std::optional<Packet> Receive(std::chrono::milliseconds timeout) override;

 private:
  struct Device;
  std::unique_ptr<Device> device;
  std::size_t packetSize = 512;  // until the probe has told
};

}  // namespace host
