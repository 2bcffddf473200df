#include <fstream>
#include <iterator>
#include <stdexcept>

#include "FlashDeviceTovik.h"

namespace {

// A directory opens like a file and fails when it is read.
std::vector<std::uint8_t> ReadWholeFile(const std::string& fileName) {
  try {
    std::ifstream file(fileName, std::ios::binary);
    file.exceptions(std::ios::failbit);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  } catch (const std::ios_base::failure&) {
    throw std::runtime_error("Failed to read " + fileName);
  }
}

}  // namespace

void FlashDeviceTovik::ProgramHsmFw(const std::string& fileName) {
  if (fileName.empty()) throw std::runtime_error("Error, empty file name!");
  const std::vector<std::uint8_t> image = ReadWholeFile(fileName);
  if (isBleMid())
    saci.ProgHsmFwBleMid(image);
  else
    saci.ProgHsmFw(image);
  ReadHsmSysInfo();
}

// The property keeps "--" when the target does not answer.
void FlashDeviceTovik::ReadHsmSysInfo() {
  utility.SetValueOfProperty("HsmSysInfo", "--");
  std::string versionText;
  saci.ReadHsmSysInfo(&versionText);
  utility.SetValueOfProperty("HsmSysInfo", versionText);
}

void FlashDeviceTovik::ReadHsmUpdateStatus() {
  std::string statusText;
  saci.ReadHsmUpdateStatus(&statusText);
  utility.SetValueOfProperty("HsmUpdateStatus", statusText);
}
