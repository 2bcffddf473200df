#include <fmt/format.h>
#include <gelf.h>
#include <libelf.h>

#include <algorithm>
#include <memory>

#include "host/device/InputError.h"
#include "host/image/ImageFormats.h"

namespace host {
namespace {

[[noreturn]] void Refuse(std::string_view name, std::string_view text) {
  throw InputError(fmt::format("{}: {}", name, text));
}

// One past the last byte of a header table.
std::uint64_t TableEnd(std::uint64_t offset, std::uint64_t count, std::uint64_t entrySize) {
  return offset + count * entrySize;
}

// Both header tables count: a file that lost its tail is damaged even where its program data is still whole.
void RequireWhole(std::string_view name, std::size_t size, const Elf32_Ehdr& header) {
  const std::uint64_t end = std::max(TableEnd(header.e_phoff, header.e_phnum, header.e_phentsize),
                                     TableEnd(header.e_shoff, header.e_shnum, header.e_shentsize));
  if (end > size)
    Refuse(name,
           fmt::format("truncated ELF: its header tables reach to byte {}, the file has {}", end, size));
}

ImageSegment ReadSegment(std::string_view name, std::span<const std::uint8_t> content, std::size_t index,
                         const Elf32_Phdr& program) {
  const std::uint64_t fileEnd = std::uint64_t{program.p_offset} + program.p_filesz;
  if (fileEnd > content.size())
    Refuse(name, fmt::format("truncated ELF: segment {} reaches to byte {}, the file has {}", index, fileEnd,
                             content.size()));
  if (program.p_filesz > 0xFFFF'FFFF - program.p_paddr)
    Refuse(name, fmt::format("segment {}: {} bytes at 0x{:08X} do not fit in 32-bit addresses", index,
                             program.p_filesz, program.p_paddr));
  const auto bytes = content.subspan(program.p_offset, program.p_filesz);
  return {program.p_paddr, {bytes.begin(), bytes.end()}};
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
  RequireWhole(name, content.size(), *header);
  if (header->e_phnum == 0) Refuse(name, "has no program headers; is it linked?");
  // The library hands out the table where it lies.
  if (header->e_phoff % alignof(Elf32_Phdr) != 0)
    Refuse(name, fmt::format("damaged ELF: its program headers begin at byte {}, no multiple of {}",
                             header->e_phoff, alignof(Elf32_Phdr)));
  const Elf32_Phdr* const programs = elf32_getphdr(elf.get());
  if (programs == nullptr) Refuse(name, fmt::format("damaged ELF: {}", elf_errmsg(-1)));

  std::vector<ImageSegment> segments;
  for (std::size_t index = 0; index < header->e_phnum; ++index) {
    const Elf32_Phdr& program = programs[index];
    if (program.p_type == PT_LOAD && program.p_filesz > 0)
      segments.push_back(ReadSegment(name, content, index, program));
  }
  return segments;
}

}  // namespace host
