#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "ConfigurationStore.h"
#include "FlashDeviceTovik.h"

namespace {

constexpr short kRamPage = 0;

void RequireSameBytes(unsigned int address, const std::vector<unsigned char>& expected,
                      const std::vector<unsigned char>& read) {
  const auto [wanted, found] = std::mismatch(expected.begin(), expected.end(), read.begin());
  if (wanted == expected.end()) return;
  const auto index = static_cast<unsigned int>(wanted - expected.begin());
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(),
                "Verification error at address 0x%08x, expected 0x%02x but read 0x%02x", address + index,
                unsigned{*wanted}, unsigned{*found});
  throw std::runtime_error(text.data());
}

}  // namespace

void FlashDeviceTovik::StoreOtp(const unsigned char* data, unsigned int address, int length) {
  CopyIntoStore(load.otpImage, map.OtpBase, {data, static_cast<std::size_t>(length)}, address);
  load.otpStored = true;
}

void FlashDeviceTovik::ProgramStoredOtp() {
  if (load.verificationOnly) return;
  RequireSaciSuccess(saci.ProgOtpSector(load.otpImage), "Error when programming OTP - ");
}

void FlashDeviceTovik::StoreRamData(const unsigned char* data, unsigned int address, int length) {
  load.ramData[address].assign(data, data + length);
}

void FlashDeviceTovik::ProgramStoredRamData() {
  ConnectDebugPort();
  if (!IsAhbApEnabled()) {
    if (!load.ramData.empty())
      utility.ReportError(
          "Debugging is not allowed, or has not been authorized. Data will not be written to RAM.");
    return;
  }
  for (const auto& [address, bytes] : load.ramData) {
    utility.WriteMemory(bytes.begin(), bytes.end(), Debugger::Address(address), kRamPage);
    std::vector<unsigned char> readBack(bytes.size());
    utility.ReadMemory(readBack.begin(), readBack.end(), Debugger::Address(address), kRamPage);
    RequireSameBytes(address, bytes, readBack);
  }
}
