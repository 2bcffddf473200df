#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/cli/ExitCode.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/probe/OpenProbe.h"
#include "host/probe/UsbProbes.h"

namespace host::cli {

namespace {

struct ProbesOptions {
  std::string name;
};

std::string WhatItIs(const ListedProbe& probe) {
  if (!probe.trouble.empty()) return probe.trouble;
  return fmt::format("firmware {}, {} packets of {} bytes",
                     probe.firmware.empty() ? "unknown" : probe.firmware, probe.packetCount,
                     probe.packetSize);
}

Json ToJson(const ListedProbe& probe) {
  const auto known = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
  const bool isAnswering = probe.trouble.empty();
  return {{"name", probe.name},
          {"product", probe.product},
          {"serial", probe.serial},
          {"cable", probe.cable},
          {"firmware", known(probe.firmware)},
          {"packet_size", isAnswering ? Json(probe.packetSize) : Json(nullptr)},
          {"packet_count", isAnswering ? Json(probe.packetCount) : Json(nullptr)},
          {"trouble", known(probe.trouble)}};
}

int Probes(const ProbesOptions& options, Output& output) {
  const std::vector<ListedProbe> probes =
      options.name.empty() ? ListProbes() : std::vector<ListedProbe>{AskTcpProbe(options.name)};
  output.document["probes"] = Json::array();
  for (const ListedProbe& probe : probes) {
    output.document["probes"].push_back(ToJson(probe));
    output.Say(
        fmt::format("{}\n    {} ({})\n    {}\n", probe.name, probe.product, probe.cable, WhatItIs(probe)));
  }
  if (probes.empty()) output.Say("no probe found\n");
  output.document["left_out"] = ProbesLeftOut();
  for (const std::string& sentence : ProbesLeftOut()) output.Say(sentence + "\n");
  return output.Finish("probes", kDone);
}

}  // namespace

void AddProbes(CLI::App& program, Job& chosen) {
  AddVerb<ProbesOptions>(
      program, chosen, "probes", "List the CMSIS-DAP probes at the USB ports, or ask one in the network",
      [](CLI::App& verb, ProbesOptions& options) {
        verb.add_option("probe", options.name, "tcp:HOST or tcp:HOST:PORT: the probe there")
            ->type_name("PROBE");
        AddJsonOption(verb);
      },
      Probes);
}

}  // namespace host::cli
