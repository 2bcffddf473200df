// Makes a firmware image for the simulated security module, so that an update can be tried.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "simulator/HsmImage.h"

namespace {

// MAJOR.MINOR.PATCH, each 0 to 255.
void ReadVersion(const std::string& text, simulator::HsmFirmware& firmware) {
  unsigned major = 0, minor = 0, patch = 0;
  char rest = 0;
  const int fields = std::sscanf(text.c_str(), "%3u.%3u.%3u%c", &major, &minor, &patch, &rest);
  if (fields != 3 || major > 255 || minor > 255 || patch > 255)
    throw CLI::ValidationError("--firmware-version",
                               "\"" + text + "\" is not MAJOR.MINOR.PATCH, each 0 to 255");
  firmware.major = static_cast<std::uint8_t>(major);
  firmware.minor = static_cast<std::uint8_t>(minor);
  firmware.patch = static_cast<std::uint8_t>(patch);
}

std::vector<std::uint8_t> Payload(std::uint32_t bytes) {
  std::mt19937 random(bytes);
  std::vector<std::uint8_t> payload(bytes);
  for (std::uint8_t& byte : payload) byte = static_cast<std::uint8_t>(random() & 0xFF);
  return payload;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Makes a firmware image for the simulated security module.", "tovik-hsm-image");
  std::string file, version = "2.0.0";
  simulator::HsmKind kind = simulator::HsmKind::Whole;
  std::uint32_t bytes = 4096, recordBytes = 256;
  bool failsToBoot = false;
  const std::map<std::string, simulator::HsmKind> kinds{{"whole", simulator::HsmKind::Whole},
                                                        {"records", simulator::HsmKind::Records}};
  app.add_option("FILE", file, "Image to write")->required()->type_name("");
  app.add_option("--firmware-version", version, "Version of the firmware; 2.0.0 without it")
      ->type_name("MAJOR.MINOR.PATCH");
  app.add_option("--form", kind, "What the device takes; whole without it")
      ->transform(CLI::CheckedTransformer(kinds).description(""))
      ->type_name("whole|records");
  app.add_option("--bytes", bytes, "Size of the firmware, 4 to 1048576; 4096 without it")
      ->check(CLI::Range(4u, 1u << 20).description(""))
      ->type_name("N");
  app.add_option("--record-bytes", recordBytes, "Firmware bytes in a record, 1 to 4096; 256 without it")
      ->check(CLI::Range(1u, 4096u).description(""))
      ->type_name("N");
  app.add_flag("--fails-to-boot", failsToBoot, "Firmware that installs but does not start");

  try {
    app.parse(argc, argv);
    simulator::HsmFirmware firmware;
    ReadVersion(version, firmware);
    firmware.boots = !failsToBoot;
    firmware.payload = Payload(bytes);
    const std::vector<std::uint8_t> image = simulator::BuildHsmImage(firmware, kind, recordBytes);
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()))
        .flush();
    if (!stream) throw std::runtime_error(file + ": cannot be written");
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tovik-hsm-image: %s\n", error.what());
    return 1;
  }
}
