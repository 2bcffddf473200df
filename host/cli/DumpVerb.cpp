#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "host/cli/ExitCode.h"
#include "host/cli/Output.h"
#include "host/cli/Target.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"
#include "host/probe/simulated/SimulatedProbe.h"

namespace host::cli {

namespace {

struct DumpOptions {
  std::string region;
  std::string output;  // empty: standard output
};

const std::vector<std::uint8_t>& BytesOf(const ChipPicture& picture, std::string_view region) {
  if (region == "main") return picture.main;
  if (region == "ccfg") return picture.ccfg;
  if (region == "scfg") return picture.scfg;
  if (region == "otp") return picture.otp;
  return picture.ram;
}

bool WriteAll(const std::vector<std::uint8_t>& bytes, std::FILE* file) {
  return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fflush(file) == 0;
}

int Dump(const Options& options, const DumpOptions& dump) {
  if (!std::filesystem::exists(options.target.chip))
    throw InputError(fmt::format("chip file {}: no such file", options.target.chip));
  const DeviceDescription device = ReadDevice(options.target);
  SimulatedChipOptions chip;
  chip.file = options.target.chip;
  const ChipPicture picture = SimulatedProbe(device, chip).Picture();
  const std::vector<std::uint8_t>& bytes = BytesOf(picture, dump.region);
  if (bytes.empty()) throw InputError(fmt::format("{} has no {}", device.name, dump.region));

  if (dump.output.empty()) {
    if (WriteAll(bytes, stdout)) return kDone;
    Complain(fmt::format("standard output: {}", std::strerror(errno)));
    return kFailed;
  }
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(dump.output.c_str(), "wb"),
                                                             &std::fclose);
  if (!file) throw InputError(fmt::format("{}: {}", dump.output, std::strerror(errno)));
  if (WriteAll(bytes, file.get())) return kDone;
  Complain(fmt::format("{}: {}", dump.output, std::strerror(errno)));
  return kFailed;
}

}  // namespace

void AddDump(CLI::App& program, Options& options) {
  auto dump = std::make_shared<DumpOptions>();
  CLI::App* verb = program.add_subcommand("dump", "Write a whole region of a chip file as raw bytes");
  verb->add_option("region", dump->region, "main, ccfg, scfg, otp or ram")
      ->required()
      ->check(CLI::IsMember({"main", "ccfg", "scfg", "otp", "ram"}))
      ->type_name("REGION");
  verb->add_option("--chip", options.target.chip, "File that keeps the chip")->required()->type_name("FILE");
  AddDeviceOption(*verb, options);
  verb->add_option("-o,--output", dump->output, "Where to write; without it, standard output")
      ->type_name("FILE");
  verb->callback([&options, dump] { options.run = [&options, dump] { return Dump(options, *dump); }; });
}

}  // namespace host::cli
