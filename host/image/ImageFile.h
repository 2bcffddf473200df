#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

enum class ImageFormat { Elf, IntelHex, SRecord, Raw };

std::string_view ImageFormatName(ImageFormat format);

// Bytes for consecutive target addresses. Never empty, and its end address fits 32 bits, so that neither the
// host's nor the plug-in's 32-bit sums can wrap.
struct ImageSegment {
  std::uint32_t address = 0;
  std::vector<std::uint8_t> data;
  bool operator==(const ImageSegment&) const = default;
};

struct ImageFile {
  std::string name;  // the path as the user gave it
  ImageFormat format = ImageFormat::Raw;
  std::vector<ImageSegment> segments;  // at least one, in file order; adjoining records are joined
  std::string sha256{};                // of the file, in hexadecimal digits; empty where none was read
};

// Reads IMAGE[@ADDRESS]: an ELF file (32-bit ARM, by program headers and physical address), Intel HEX or
// Motorola S-record, or a raw binary, which alone takes and needs an address (decimal, or hexadecimal with
// 0x). The content decides the format, then the file name's extension. Throws InputError with one line that
// says what is wrong and where.
ImageFile ReadImage(std::string_view argument);

// The format that the extension of a file name stands for, in either case, if it is a known one.
std::optional<ImageFormat> FormatByExtension(std::string_view name);

// The file that IMAGE[@ADDRESS] names. Throws InputError when the address is none.
std::string ImagePath(std::string_view argument);

// The same for bytes already read; `name` is for messages and for its extension.
ImageFile ParseImage(std::string_view name, std::span<const std::uint8_t> content,
                     std::optional<std::uint64_t> address = std::nullopt);

}  // namespace host
