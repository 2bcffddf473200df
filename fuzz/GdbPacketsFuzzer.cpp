#include <cstdint>
#include <string>
#include <string_view>

#include "ByteSource.h"
#include "Require.h"
#include "host/gdb/Link.h"
#include "tests/gdb/FakeTarget.h"

// Arbitrary bytes from a client, as they are or as the payloads of sound packets. What goes back are
// acknowledgements and whole, sound packets; while flash is written nothing but one answer a packet; and then
// a good load loads what it says.
//
// Input: how the chip is | pieces: choice, text.

namespace {

using namespace fuzz;
using host::gdb::Packet;

// Takes one packet off the front, by a reading of the framing of its own; the payload.
std::string_view TakePacket(std::string_view& wire) {
  while (wire.starts_with('+') || wire.starts_with('-')) wire.remove_prefix(1);
  if (wire.empty()) return {};
  Require(wire.front() == '$', "an answer is a packet");
  const std::size_t end = wire.find('#');
  Require(end != std::string_view::npos && wire.size() >= end + 3, "an answer is a whole packet");
  const std::string_view payload = wire.substr(1, end - 1);
  Require(Packet(payload) == wire.substr(0, end + 3), "an answer has its checksum");
  wire.remove_prefix(end + 3);
  return payload;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteSource input({data, size});
  const std::uint8_t choice = input.Byte();
  FakeTarget chip;
  chip.isOpen = (choice & 1) != 0;
  chip.failsLoads = (choice & 2) != 0;
  std::string wire;
  host::gdb::Link link(chip, chip, [&](std::string_view bytes) { wire += bytes; });

  while (!input.IsEmpty()) {
    const bool isPacket = (input.Byte() & 1) != 0;
    const std::string text = input.Text();
    const std::size_t before = wire.size();
    link.Take(isPacket ? Packet(host::gdb::Escaped(text)) : text);
    if (isPacket && text.starts_with("vFlash")) {
      std::string_view answer = std::string_view(wire).substr(before);
      const std::string_view payload = TakePacket(answer);
      Require(answer.empty() && (payload == "OK" || payload.starts_with('E') || payload.empty()),
              "one answer, and no console text, while flash is written");
    }
  }
  for (std::string_view rest = wire; !rest.empty();) (void)TakePacket(rest);

  // The same client, unless it has detached, and another. Registers are no part of a load: it is given up.
  host::gdb::Link next(chip, chip, [&](std::string_view bytes) { wire += bytes; });
  chip.failsLoads = false;
  for (host::gdb::Link* const client : {&link, &next}) {
    chip.loads.clear();
    client->Take(Packet("g") + Packet("vFlashErase:7ff,2") + Packet("vFlashWrite:7ff:ab") +
                 Packet("vFlashDone"));
    const bool isLoaded = chip.loads.size() == 1 && chip.loads[0].size() == 1 &&
                          chip.loads[0][0].address == 0x7FF &&
                          chip.loads[0][0].data == std::vector<std::uint8_t>{'a', 'b'};
    if (client == &next) Require(isLoaded, "the next client loads");
    Require(isLoaded || chip.loads.empty(), "a load holds nothing that came before it");
    client->End();
  }
  return 0;
}
