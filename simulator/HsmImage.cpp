#include "HsmImage.h"

#include <algorithm>
#include <stdexcept>

#include "Crc32.h"

namespace simulator {
namespace {

void AppendWord(std::vector<std::uint8_t>& image, std::uint32_t word) {
  for (unsigned shift = 0; shift < 32; shift += 8) image.push_back(static_cast<std::uint8_t>(word >> shift));
}

void AppendPadded(std::vector<std::uint8_t>& image, std::span<const std::uint8_t> data) {
  image.insert(image.end(), data.begin(), data.end());
  image.resize((image.size() + 3) / 4 * 4);
}

}  // namespace

std::vector<std::uint8_t> BuildHsmImage(const HsmFirmware& firmware, HsmKind kind,
                                        std::uint32_t recordBytes) {
  if (kind == HsmKind::None) throw std::runtime_error("A chip without security module takes no image");
  if (recordBytes == 0) throw std::runtime_error("An image record holds at least one byte");
  constexpr std::uint32_t kHeaderBytes = 12;
  const std::span<const std::uint8_t> payload = firmware.payload;

  std::vector<std::uint8_t> image;
  AppendWord(image, kind == HsmKind::Whole ? kHsmWholeMagic : kHsmRecordsMagic);
  if (kind == HsmKind::Records) AppendWord(image, kHeaderBytes);
  AppendWord(image, std::uint32_t{firmware.major} << 16 | std::uint32_t{firmware.minor} << 8 |
                        firmware.patch | (firmware.boots ? 0 : kHsmFailsToBoot));
  AppendWord(image, static_cast<std::uint32_t>(payload.size()));
  AppendWord(image, Crc32(payload));
  if (kind == HsmKind::Whole) {
    AppendPadded(image, payload);
    return image;
  }
  for (std::size_t at = 0; at < payload.size(); at += recordBytes) {
    const auto record = payload.subspan(at, std::min<std::size_t>(recordBytes, payload.size() - at));
    AppendWord(image, static_cast<std::uint32_t>(record.size()));
    AppendPadded(image, record);
  }
  return image;
}

}  // namespace simulator
