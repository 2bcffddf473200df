#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// A CMSIS-DAP probe at one of this computer's USB ports.
struct ListedProbe {
  std::string name;  // as OpenProbe takes it
  std::string product;
  std::string serial;
  std::string cable;     // "USB bulk" or "USB HID"
  std::string firmware;  // with the sizes, as the probe tells them; empty when it cannot be asked
  std::size_t packetSize = 0;
  unsigned packetCount = 0;
  std::string trouble;  // why it cannot be asked: in use, no permission
};

// Asks each probe that it finds who it is, and leaves it alone again.
std::vector<ListedProbe> ListProbes();

// Sentences about the kinds of probes that this build leaves out.
std::vector<std::string> ProbesLeftOut();

// The probe with that serial number, or the only one when it is empty. Throws InputError when there are
// several, and ProbeError when there is none or it cannot be opened.
std::unique_ptr<PacketLink> OpenUsbProbe(std::string_view serial);

}  // namespace host
