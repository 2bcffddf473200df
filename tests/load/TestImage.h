#pragma once

#include <cstdint>
#include <vector>

#include "Workbench.h"

// Bytes that compress badly, the same for the same seed.
Bytes Noise(std::size_t size, std::uint32_t seed);

// Puts the CRC word behind a covered range right: CRC-32 of IEEE 802.3, computed bit by bit.
void PutCrcRight(Bytes& sector, host::CoveredRange range);

// An image for a device, region by region. CRC words are wrong until somebody puts them right.
struct TestImage {
  std::vector<host::ImageSegment> main;
  Bytes ccfg;  // the whole sector, opens debugging
  Bytes scfg;  // the whole sector, two keys in the ring
  host::ImageSegment otp;
  std::vector<host::ImageSegment> ram;

  // Every region that the device has.
  [[nodiscard]] std::vector<host::ImageSegment> Segments(const host::DeviceDescription& device) const;
};

// Sectors that the CCFG of a test image marks to be retained by a chip erase: single ones, one by a group
// bit, and beyond sector 256 where the device's field reaches so far.
bool IsMarkedRetained(const host::DeviceDescription& device, std::uint32_t sector);

constexpr std::uint32_t kFilledSector = 32;  // all kFillByte in the MAIN data of the image
constexpr std::uint8_t kFillByte = 0xEE;
TestImage MakeImage(const host::DeviceDescription& device, std::uint32_t seed);

// The same CCFG and SCFG with all CRC words right, which is what a load makes of them.
Bytes CcfgWithCrcs(const host::DeviceDescription& device, Bytes ccfg);
Bytes ScfgWithCrc(const host::DeviceDescription& device, Bytes scfg);
// A CCFG without its user record, as it is programmed unless the settings say otherwise.
Bytes WithoutUserRecord(const host::DeviceDescription& device, Bytes ccfg);

// The bytes of the segments as they end up in a region that begins at `base`, of which no other byte is
// given.
Bytes Laid(const std::vector<host::ImageSegment>& segments, std::uint32_t base, std::size_t size,
           std::uint8_t fill);

// Debugging behind kPassword, in an image's CCFG.
constexpr char kPassword[] = "open sesame!";  // whole words: nothing is padded before it is hashed
void RequirePassword(const host::DeviceDescription& device, TestImage& image);
