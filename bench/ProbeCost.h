#pragma once

namespace bench {

// Processor time of the host's probe code for one packet of a sector that is programmed, in nanoseconds:
// block, look for the acknowledgement, its word. The cable's other end answers at once and costs next to
// nothing.
double ProbeNsPerPacket();

}  // namespace bench
