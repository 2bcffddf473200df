#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// The cable to a probe that is a USB HID device: CMSIS-DAP version 1. Packets are reports, filled up with
// zeros to the probe's packet size.
class UsbHidLink final : public PacketLink {
 public:
  struct Found {
    std::string path;
    std::string serial;
    std::string product;
  };
  // The devices whose product is called CMSIS-DAP, open to us or not.
  static std::vector<Found> Find();

  // Throws ProbeError when it cannot be opened.
  explicit UsbHidLink(const Found& device);
  ~UsbHidLink() override;

  [[nodiscard]] std::size_t PacketSize() const override { return reportSize; }
  void SetPacketSize(std::size_t bytes) override { reportSize = bytes; }
  void Send(std::span<const std::uint8_t> packet) override;
  std::optional<Packet> Receive(std::chrono::milliseconds timeout) override;

 private:
  struct Device;
  std::unique_ptr<Device> device;
  std::size_t reportSize = 64;  // every probe takes these
};

}  // namespace host
