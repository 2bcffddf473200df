#include <fmt/format.h>
#include <gelf.h>
#include <libelf.h>

#include <memory>

#include "host/device/InputError.h"
#include "host/image/ImageFormats.h"

namespace host {
namespace {

[[noreturn]] void Refuse(std::string_view name, std::string_view text) {
  throw InputError(fmt::format("{}: {}", name, text));
}

// One of the two header tables, as the file header tells it.
struct Table {
  std::string_view of;
  std::uint64_t offset;
  std::uint64_t count;
  std::uint64_t entrySize;       // as the file says
  std::uint64_t rightEntrySize;  // as the format says
};

// Both tables count: a file that lost its tail is damaged even where its program data is still whole. Records
// of another size than the format's would put the table's end elsewhere than its readers do.
void RequireWhole(std::string_view name, std::size_t size, const Table& table) {
  if (table.count == 0) return;
  if (table.entrySize != table.rightEntrySize)
    Refuse(name, fmt::format("damaged ELF: it says that a {} header has {} bytes, not {}", table.of,
                             table.entrySize, table.rightEntrySize));
  const std::uint64_t end = table.offset + table.count * table.entrySize;
  if (end > size)
    Refuse(name, fmt::format("truncated ELF: its {} headers reach to byte {}, the file has {}", table.of, end,
                             size));
}

// A count of 0xFFFF or 0 may stand for one that is kept in the first section header; images never have so
// many, and the library would believe any number there.
void RequireSoundTables(std::string_view name, std::size_t size, const Elf32_Ehdr& header) {
  if (header.e_phnum == PN_XNUM)
    Refuse(name, "damaged ELF: it says that it has 65535 program headers or more");
  RequireWhole(name, size,
               {"program", header.e_phoff, header.e_phnum, header.e_phentsize, sizeof(Elf32_Phdr)});
  RequireWhole(name, size,
               {"section", header.e_shoff, header.e_shnum, header.e_shentsize, sizeof(Elf32_Shdr)});
}

ImageSegment ReadSegment(std::string_view name, std::span<const std::uint8_t> content, std::size_t index,
                         const GElf_Phdr& program) {
  // The library widens the file's 32-bit fields, so no sum can wrap.
  const std::uint64_t fileEnd = program.p_offset + program.p_filesz;
  if (fileEnd > content.size())
    Refuse(name, fmt::format("truncated ELF: segment {} reaches to byte {}, the file has {}", index, fileEnd,
                             content.size()));
  if (program.p_filesz > 0xFFFF'FFFF - program.p_paddr)
    Refuse(name, fmt::format("segment {}: {} bytes at 0x{:08X} do not fit in 32-bit addresses", index,
                             program.p_filesz, program.p_paddr));
  const auto bytes = content.subspan(program.p_offset, program.p_filesz);
  return {static_cast<std::uint32_t>(program.p_paddr), {bytes.begin(), bytes.end()}};
}

}  // namespace

std::vector<ImageSegment> ParseElf(std::string_view name, std::span<const std::uint8_t> content) {
  if (content.size() < sizeof(Elf32_Ehdr))
    Refuse(name, fmt::format("truncated ELF: {} bytes do not hold its header", content.size()));
  if (content[EI_CLASS] != ELFCLASS32 || content[EI_DATA] != ELFDATA2LSB)
    Refuse(name, "is not a 32-bit little-endian ELF file");

  // The library wants memory that it could write to.
  std::vector<std::uint8_t> copy(content.begin(), content.end());
  elf_version(EV_CURRENT);
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_memory(reinterpret_cast<char*>(copy.data()), copy.size()),
                                                elf_end);
  const Elf32_Ehdr* const header = elf ? elf32_getehdr(elf.get()) : nullptr;
  if (header == nullptr) Refuse(name, fmt::format("damaged ELF: {}", elf_errmsg(-1)));
  if (header->e_machine != EM_ARM)
    Refuse(name, fmt::format("is an ELF file for machine {}, not for ARM", header->e_machine));
  RequireSoundTables(name, content.size(), *header);
  std::size_t count = 0;
  if (elf_getphdrnum(elf.get(), &count) != 0) Refuse(name, fmt::format("damaged ELF: {}", elf_errmsg(-1)));
  if (count == 0) Refuse(name, "has no program headers; is it linked?");

  std::vector<ImageSegment> segments;
  for (std::size_t index = 0; index < count; ++index) {
    GElf_Phdr program;
    if (gelf_getphdr(elf.get(), static_cast<int>(index), &program) == nullptr)
      Refuse(name, fmt::format("damaged ELF: {}", elf_errmsg(-1)));
    if (program.p_type == PT_LOAD && program.p_filesz > 0)
      segments.push_back(ReadSegment(name, content, index, program));
  }
  return segments;
}

}  // namespace host
