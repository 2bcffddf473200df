#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/cli/ExitCode.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/image/ImageFile.h"
#include "host/image/ImageWriter.h"
#include "host/plan/Crc32.h"

namespace host::cli {

namespace {

struct DumpOptions {
  TargetOptions target;
  std::string region;
  std::string format;
  std::string output;                 // empty: standard output
  std::optional<std::uint64_t> from;  // in place of a region's begin
  std::optional<std::uint64_t> length;
};

struct Memory {
  std::string_view name;
  AddressRange range;
  std::vector<std::uint8_t> bytes;
};

std::vector<Memory> MemoriesOf(const MemoryMap& map, ChipPicture picture) {
  return {{"main", map.main, std::move(picture.main)},
          {"ccfg", map.ccfg, std::move(picture.ccfg)},
          {"scfg", map.scfg, std::move(picture.scfg)},
          {"otp", map.otp, std::move(picture.otp)},
          {"ram", map.ram, std::move(picture.ram)}};
}

// The memory that the user names, or that the address lies in.
const Memory& Chosen(const std::vector<Memory>& memories, const DumpOptions& dump,
                     const std::string& device) {
  const auto chosen = std::find_if(memories.begin(), memories.end(), [&](const Memory& memory) {
    if (!dump.region.empty()) return memory.name == dump.region;
    return *dump.from <= 0xFFFF'FFFF && memory.range.Contains(static_cast<std::uint32_t>(*dump.from));
  });
  if (chosen == memories.end())
    throw InputError(fmt::format("0x{:08x} lies in no memory of {}", *dump.from, device));
  if (chosen->bytes.empty()) throw InputError(fmt::format("{} has no {}", device, dump.region));
  return *chosen;
}

struct Range {
  std::uint32_t address;
  std::span<const std::uint8_t> bytes;
};

Range Cut(const Memory& memory, const DumpOptions& dump) {
  const std::uint64_t base = memory.range.base;
  const std::uint64_t end = base + memory.bytes.size();
  const std::uint64_t from = dump.from.value_or(base);
  const std::uint64_t length = dump.length.value_or(end - std::min(from, end));
  if (from < base || from >= end || length == 0 || length > end - from)
    throw InputError(fmt::format("0x{:08x} and {} bytes do not lie in {} (0x{:08x}..0x{:08x})", from, length,
                                 memory.name, base, end - 1));
  return {static_cast<std::uint32_t>(from), std::span(memory.bytes).subspan(from - base, length)};
}

std::string Encoded(const Range& range, std::string_view format) {
  if (format == "hex") return WriteIntelHex(range.bytes, range.address);
  if (format == "srec") return WriteSRecord(range.bytes, range.address);
  return {reinterpret_cast<const char*>(range.bytes.data()), range.bytes.size()};
}

std::string FormatOf(const DumpOptions& dump) {
  if (!dump.format.empty()) return dump.format;
  const std::optional<ImageFormat> format = FormatByExtension(dump.output);
  return format == ImageFormat::IntelHex ? "hex" : format == ImageFormat::SRecord ? "srec" : "raw";
}

int Dump(const DumpOptions& dump, Output& output) {
  if (dump.target.chip.empty()) throw InputError("which chip? Give --chip FILE");
  if (dump.region.empty() && !dump.from) throw InputError("what to dump? A region, or --from ADDRESS");
  Files files = FilesOf(dump.target);
  files.Writes("output", dump.output);
  files.RequireDistinct();

  Session session(Request(dump.target, MissingChip::Refuse));
  const std::vector<Memory> memories = MemoriesOf(session.device.map, session.View()->Picture());
  const Range range = Cut(Chosen(memories, dump, session.device.name), dump);
  const std::string encoded = Encoded(range, FormatOf(dump));
  output.document = {{"device", session.device.name},
                     {"address", range.address},
                     {"bytes", range.bytes.size()},
                     {"crc32", fmt::format("0x{:08x}", Crc32(range.bytes))},
                     {"format", FormatOf(dump)}};
  if (!dump.output.empty()) {
    ReplaceFile(dump.output, encoded);
    output.document["file"] = dump.output;
  } else if (output.IsJson()) {
    output.document["data"] = fmt::format("{:02x}", fmt::join(range.bytes, ""));
  } else {
    output.Write({reinterpret_cast<const std::uint8_t*>(encoded.data()), encoded.size()});
  }
  return output.Finish("dump", kDone);
}

}  // namespace

void AddDump(CLI::App& program, Job& chosen) {
  AddVerb<DumpOptions>(
      program, chosen, "dump", "Write memory of a chip file: a whole region, or a range of one",
      [](CLI::App& verb, DumpOptions& dump) {
        verb.add_option("region", dump.region, "main, ccfg, scfg, otp or ram")
            ->check(CLI::IsMember({"main", "ccfg", "scfg", "otp", "ram"}).description(""))
            ->type_name("REGION");
        verb.add_option("--from", dump.from, "First address, in place of the region's own")
            ->type_name("ADDRESS");
        verb.add_option("--length", dump.length, "How many bytes; without it, to the region's end")
            ->type_name("N");
        verb.add_option("--chip", dump.target.chip, "File that keeps the chip")
            ->type_name("FILE")
            ->envname("TOVIK_CHIP");
        AddDeviceOption(verb, dump.target);
        verb.add_option("--format", dump.format,
                        "raw, hex (Intel HEX) or srec (S-record); without it, as the output's name says")
            ->check(CLI::IsMember({"raw", "hex", "srec"}).description(""))
            ->type_name("FORMAT");
        verb.add_option("-o,--output", dump.output, "Where to write; without it, standard output")
            ->type_name("FILE");
        AddJsonOption(verb);
      },
      Dump);
}

}  // namespace host::cli
