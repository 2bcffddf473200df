#pragma once

#include <cstdint>

// DEVICEID.DEVICE numbers of the parts that the plug-in treats specially; the chip's.
constexpr std::uint32_t kDeviceBleHigh = 0xBB98;
constexpr std::uint32_t kDeviceBleHighSecond = 0xBBC5;
constexpr std::uint32_t kDeviceBleMid = 0xBBCC;

// The newer parts: another retain field, and an erase setting made of separate options.
constexpr bool IsNewerPart(std::uint32_t device) {
  return device == kDeviceBleHigh || device == kDeviceBleHighSecond || device == kDeviceBleMid;
}

// The parts whose flash can also be addressed with bit 28 set.
constexpr bool HasFlashAlias(std::uint32_t device) {
  return device == kDeviceBleHigh || device == kDeviceBleHighSecond;
}
