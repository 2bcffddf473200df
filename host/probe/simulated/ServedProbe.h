#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "host/device/DeviceDescription.h"
#include "host/net/Server.h"
#include "host/probe/ChipView.h"
#include "host/probe/OpenProbe.h"

namespace host {

class SimulatedBoard;

// A simulated chip behind a probe in the network: what the probe is sent in frames (see TcpFrames) it
// answers. Every client finds the probe as if it had just been plugged in, and the chip as the one before has
// left it.
class ServedProbe {
 public:
  // `probe` is "sim", "sim:hs", "sim:fs" or "sim:hid". Throws InputError for another one, and for an unusable
  // chip file or fault.
  ServedProbe(const DeviceDescription& device, const SimulatedChipOptions& options, std::string_view probe);
  ~ServedProbe();

  [[nodiscard]] ChipView& Chip();

  // What is told of the clients, and done when one has gone.
  struct Ears {
    std::function<void(std::string_view)> say;
    std::function<void(std::string_view)> complain;
    std::function<void()> clientHasGone;
  };
  // This object must outlive what it offers.
  net::Service Offer(Ears ears);

 private:
  class Client;
  struct Model;
  std::unique_ptr<SimulatedBoard> board;
  std::unique_ptr<Model> model;
};

}  // namespace host
