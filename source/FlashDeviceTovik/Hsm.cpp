#include <fstream>
#include <iterator>
#include <stdexcept>

#include "FlashDeviceTovik.h"

namespace {

// A directory opens like a file and fails when it is read.
std::vector<std::uint8_t> ReadWholeFile(std::string const& fileName) {
  try {
    std::ifstream file(fileName, std::ios::binary);
    file.exceptions(std::ios::failbit);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  } catch (std::ios_base::failure const&) {
    throw std::runtime_error("Failed to read " + fileName);
  }
}

}  // namespace

void FlashDeviceTovik::ProgramHsmFw(std::string const& fileName) {
  if (fileName.empty()) throw std::runtime_error("Error, empty file name!");
  std::vector<std::uint8_t> const image = ReadWholeFile(fileName);
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
