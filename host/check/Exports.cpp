#include "host/check/Exports.h"

#include <fmt/format.h>
#include <gelf.h>
#include <libelf.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "host/device/FileBytes.h"
#include "host/device/InputError.h"

namespace host {

namespace {

constexpr std::uintmax_t kLargest = 256U << 20;  // with all that a debugger wants to know

// Every linker puts these in, or used to.
constexpr const char* s_linkerSymbols[] = {"_init", "_fini", "_edata", "_end", "__bss_start"};

Elf64_Half OwnMachine() {
  Elf64_Ehdr header{};
  std::ifstream("/proc/self/exe", std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof header);
  return header.e_machine;  // at the same place for 32 bits
}

bool IsExported(const GElf_Sym& symbol, std::string_view name) {
  const bool isLinkers =
      symbol.st_shndx == SHN_ABS ||  // the name of a version
      std::find(std::begin(s_linkerSymbols), std::end(s_linkerSymbols), name) != std::end(s_linkerSymbols);
  return symbol.st_shndx != SHN_UNDEF && GELF_ST_BIND(symbol.st_info) != STB_LOCAL && !isLinkers;
}

void AddExports(Elf* elf, Elf_Scn* section, std::vector<std::string>& exports) {
  GElf_Shdr header{};
  if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_DYNSYM) return;
  Elf_Data* const data = elf_getdata(section, nullptr);
  GElf_Sym symbol{};
  for (int i = 0; gelf_getsym(data, i, &symbol) != nullptr; ++i) {
    const char* const name = elf_strptr(elf, header.sh_link, symbol.st_name);
    if (name != nullptr && IsExported(symbol, name)) exports.emplace_back(name);
  }
}

}  // namespace

std::vector<std::string> ExportsOf(const std::filesystem::path& library) {
  std::string content = ReadWholeFile(library, kLargest);
  (void)elf_version(EV_CURRENT);
  const std::unique_ptr<Elf, decltype(&elf_end)> elf(elf_memory(content.data(), content.size()), elf_end);
  GElf_Ehdr header{};
  if (!elf || gelf_getehdr(elf.get(), &header) == nullptr || header.e_type != ET_DYN)
    throw InputError(fmt::format("{}: is no shared library", library.string()));
  if (header.e_machine != OwnMachine())
    throw InputError(fmt::format("{}: is for another kind of machine", library.string()));
  std::vector<std::string> exports;
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf.get(), section)) != nullptr;)
    AddExports(elf.get(), section, exports);
  return exports;
}

}  // namespace host
