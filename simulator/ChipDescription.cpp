#include "ChipDescription.h"

#include <iterator>
#include <stdexcept>
#include <string_view>

namespace simulator {
namespace {

constexpr std::uint32_t kLargestOtp = 2048;
constexpr std::uint32_t kCrcWord = 4;

struct Region {
  std::string_view name;
  std::uint64_t base;
  std::uint64_t size;
};

void Require(bool holds, const ChipDescription& description, std::string_view what) {
  if (!holds) throw std::runtime_error("Chip description " + description.name + ": " + std::string(what));
}

bool Fits(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
  return length > 0 && offset + length <= size;
}

void CheckRegions(const ChipDescription& description) {
  const Region regions[] = {
      {"MAIN", 0, description.mainSize},
      {"CCFG", description.ccfgBase, description.ccfgSize},
      {"SCFG", description.scfgBase, description.scfgSize},
      {"OTP", description.otpBase, description.otpSize},
      {"RAM", description.ramBase, description.ramSize},
  };
  for (std::size_t i = 0; i < std::size(regions); ++i) {
    const Region& one = regions[i];
    const std::string name(one.name);
    Require(one.size % 4 == 0 && one.base % 4 == 0, description, name + " is no whole number of words");
    Require(one.base + one.size <= 0x1'0000'0000, description, name + " does not fit 32-bit addresses");
    for (std::size_t j = 0; j < i; ++j) {
      const Region& other = regions[j];
      const bool apart = one.size == 0 || other.size == 0 || one.base + one.size <= other.base ||
                         other.base + other.size <= one.base;
      Require(apart, description, name + " overlaps " + std::string(other.name));
    }
  }
}

void CheckCrcRange(const ChipDescription& description, ByteRange range, std::uint32_t sectorSize,
                   std::string_view name) {
  Require(range.length > 0 && Fits(range.offset, std::uint64_t{range.length} + kCrcWord, sectorSize),
          description, "the range of " + std::string(name) + " and its word do not fit the sector");
}

}  // namespace

void CheckDescription(const ChipDescription& description) {
  Require(description.sectorSize > 0 && description.sectorSize % 4 == 0, description,
          "the sector size is no whole number of words");
  Require(description.mainSize > 0 && description.mainSize % description.sectorSize == 0, description,
          "MAIN is no whole number of sectors");
  CheckRegions(description);
  Require(description.otpSize <= kLargestOtp, description, "OTP is larger than 2048 bytes");

  const std::uint32_t size = description.ccfgSize;
  const ByteRange record = description.userRecord;
  Require(Fits(record.offset, record.length, size) && record.length % 4 == 0, description,
          "the user record does not fit the CCFG");
  CheckCrcRange(description, description.bootCfgCrc, size, "the boot configuration CRC");
  CheckCrcRange(description, description.ccfgCrc, size, "the CCFG CRC");
  CheckCrcRange(description, description.userRecordCrc, size, "the user record CRC");
  CheckCrcRange(description, description.debugCfgCrc, size, "the debug configuration CRC");
  if (description.scfgSize != 0)
    CheckCrcRange(description, description.scfgCrc, description.scfgSize, "the SCFG CRC");

  const std::uint32_t words = description.chipEraseRetainWords;
  Require(words == 2 || words == 3 || words == 5, description, "the retain field has not 2, 3 or 5 words");
  Require(Fits(description.chipEraseRetainOffset, std::uint64_t{words} * 4, size), description,
          "the retain field does not fit the CCFG");
  Require(description.retainGroupShift <= 4, description, "the retain field's group shift is above 4");
  Require(Fits(description.debugTypeOffset, 1, size) && Fits(description.debugIdOffset, 8, size) &&
              Fits(description.debugHashOffset, 32, size),
          description, "the debug authorization does not fit the CCFG");
}

}  // namespace simulator
