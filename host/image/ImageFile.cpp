#include "host/image/ImageFile.h"

#include <fmt/format.h>

#include <filesystem>

#include "host/device/FileBytes.h"
#include "host/device/InputError.h"
#include "host/device/Number.h"
#include "host/device/Text.h"
#include "host/image/ImageFormats.h"
#include "host/image/Sha256.h"

namespace host {
namespace {

// The largest part has 16 MiB of MAIN flash; an ELF file with debug information is a few times its code. More
// than this is a wrong file.
constexpr std::uintmax_t kLargestFile = std::uintmax_t{1} << 30;

struct FormatName {
  ImageFormat format;
  std::string_view text;
};
constexpr FormatName s_formatNames[] = {
    {ImageFormat::Elf, "ELF"},
    {ImageFormat::IntelHex, "Intel HEX"},
    {ImageFormat::SRecord, "S-record"},
    {ImageFormat::Raw, "raw binary"},
};

struct Extension {
  std::string_view text;  // lower case
  ImageFormat format;
};
constexpr Extension s_extensions[] = {
    {".elf", ImageFormat::Elf},      {".out", ImageFormat::Elf},       {".axf", ImageFormat::Elf},
    {".hex", ImageFormat::IntelHex}, {".ihex", ImageFormat::IntelHex}, {".srec", ImageFormat::SRecord},
    {".s19", ImageFormat::SRecord},  {".s28", ImageFormat::SRecord},   {".s37", ImageFormat::SRecord},
    {".mot", ImageFormat::SRecord},  {".bin", ImageFormat::Raw},
};

struct Argument {
  std::string_view path;
  std::optional<std::uint64_t> address;
};

bool BeginsWithDigits(std::string_view text, std::size_t count) {
  return text.size() >= count && IsHexDigits(text.substr(0, count));
}

// A file may have an '@' in its own name, so a whole argument that names a file is just that.
Argument SplitArgument(std::string_view argument) {
  const std::size_t at = argument.rfind('@');
  std::error_code ignored;
  if (at == std::string_view::npos || std::filesystem::exists(argument, ignored)) return {argument, {}};
  const std::string_view path = argument.substr(0, at);
  const std::string_view suffix = argument.substr(at + 1);
  const std::optional<std::uint64_t> address = ParseNumber(suffix);
  if (!address)
    throw InputError(
        fmt::format("{}: \"{}\" is not an address (decimal, or hexadecimal with 0x)", argument, suffix));
  return {path, address};
}

std::optional<ImageFormat> FormatByContent(std::string_view text) {
  if (text.starts_with("\x7f"
                       "ELF"))
    return ImageFormat::Elf;
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return std::nullopt;
  text.remove_prefix(first);
  // The shortest records: ":" with 10 digits, "S" and a type with 8.
  if (text.front() == ':' && BeginsWithDigits(text.substr(1), 10)) return ImageFormat::IntelHex;
  if (text.front() == 'S' && BeginsWithDigits(text.substr(1), 9)) return ImageFormat::SRecord;
  return std::nullopt;
}

ImageFormat FormatOf(std::string_view name, std::string_view text, bool hasAddress) {
  if (const auto format = FormatByContent(text)) return *format;
  if (hasAddress) return ImageFormat::Raw;
  if (const auto format = FormatByExtension(name)) return *format;
  throw InputError(fmt::format(
      "{}: is neither ELF nor Intel HEX nor S-record; give a raw binary its address as FILE@ADDRESS", name));
}

std::vector<ImageSegment> ParseRaw(std::string_view name, std::span<const std::uint8_t> content,
                                   std::optional<std::uint64_t> address) {
  if (!address) throw InputError(fmt::format("{}: a raw binary needs an address, as in {}@0x0", name, name));
  // Subtracted rather than added, so that an address near 2^64 cannot wrap.
  if (*address > 0xFFFF'FFFF || content.size() > 0xFFFF'FFFF - *address)
    throw InputError(fmt::format("{}: {} bytes at 0x{:08X} do not fit in 32-bit addresses", name,
                                 content.size(), *address));
  return {{static_cast<std::uint32_t>(*address), {content.begin(), content.end()}}};
}

}  // namespace

std::optional<ImageFormat> FormatByExtension(std::string_view name) {
  const std::string extension = LowerCase(std::filesystem::path(name).extension().string());
  for (const Extension& known : s_extensions)
    if (known.text == extension) return known.format;
  return std::nullopt;
}

std::string_view ImageFormatName(ImageFormat format) {
  for (const FormatName& name : s_formatNames)
    if (name.format == format) return name.text;
  return "unknown";
}

ImageFile ReadImage(std::string_view argument) {
  const Argument split = SplitArgument(argument);
  const std::string content = ReadWholeFile(split.path, kLargestFile);
  const std::span bytes(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
  ImageFile image = ParseImage(split.path, bytes, split.address);
  image.sha256 = Sha256(bytes);
  return image;
}

std::string ImagePath(std::string_view argument) {
  return std::string(SplitArgument(argument).path);
}

ImageFile ParseImage(std::string_view name, std::span<const std::uint8_t> content,
                     std::optional<std::uint64_t> address) {
  if (content.empty()) throw InputError(fmt::format("{}: is empty", name));
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  const ImageFormat format = FormatOf(name, text, address.has_value());
  if (address && format != ImageFormat::Raw)
    throw InputError(fmt::format("{}: is {}, which holds its own addresses; leave out \"@0x{:X}\"", name,
                                 ImageFormatName(format), *address));

  ImageFile image{std::string(name), format, {}};
  switch (format) {
    case ImageFormat::Elf: image.segments = ParseElf(name, content); break;
    case ImageFormat::IntelHex: image.segments = ParseIntelHex(name, text); break;
    case ImageFormat::SRecord: image.segments = ParseSRecord(name, text); break;
    case ImageFormat::Raw: image.segments = ParseRaw(name, content, address); break;
  }
  if (image.segments.empty()) throw InputError(fmt::format("{}: holds no data to load", name));
  return image;
}

}  // namespace host
