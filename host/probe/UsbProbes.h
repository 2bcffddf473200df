#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// A CMSIS-DAP probe, as it is shown to the user.
struct ListedProbe {
  std::string name;  // as OpenProbe takes it
  std::string product;
  std::string serial;
  std::string cable;     // "USB bulk, CMSIS-DAP 2", "USB HID, CMSIS-DAP 1" or "network"
  std::string firmware;  // with the sizes, as the probe tells them; empty when it cannot be asked
  std::size_t packetSize = 0;
  unsigned packetCount = 0;
  std::string trouble;  // why it cannot be asked: in use, no permission
};

// What the probe at the end of `cable` says of itself. Throws ProbeError.
void Describe(std::unique_ptr<PacketLink> cable, ListedProbe& probe);

// Asks each probe at this computer's USB ports who it is, and leaves it alone again.
std::vector<ListedProbe> ListProbes();

// Sentences about the kinds of probes that this build leaves out.
std::vector<std::string> ProbesLeftOut();

// The probe with that serial number, or the only one when it is empty. Throws InputError when there are
// several, and ProbeError when there is none or it cannot be opened.
std::unique_ptr<PacketLink> OpenUsbProbe(std::string_view serial);

}  // namespace host
