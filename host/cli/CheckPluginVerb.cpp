#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/check/PluginCheck.h"
#include "host/cli/ExitCode.h"
#include "host/cli/Locations.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/plan/Preflight.h"

namespace host::cli {

namespace {

struct CheckPluginOptions {
  std::string plugin;
  std::vector<std::string> devices;
  std::vector<std::string> checks;
  unsigned seconds = 10;
};

std::string ChecksText() {
  std::string text = "Make only this check:";
  for (const Check& check : AllChecks())
    text += fmt::format("{} {}: {}", check.name == AllChecks().front().name ? "" : ";", check.name,
                        check.meaning);
  return text;
}

// What is wrong with a description would be found wrong with the plug-in.
DeviceDescription SoundDevice(const std::filesystem::path& file) {
  DeviceDescription device = ReadDeviceDescription(file);
  const std::vector<std::string> contradictions = Contradictions(device);
  if (!contradictions.empty()) throw InputError(contradictions.front());
  return device;
}

std::vector<DeviceDescription> DevicesNamed(const std::vector<std::string>& names) {
  std::vector<DeviceDescription> devices;
  devices.reserve(names.size());
  for (const std::string& name : names) devices.push_back(SoundDevice(FindDeviceFile(name, DevicesFolder())));
  if (names.empty())
    for (const std::filesystem::path& file : ListDeviceFiles(DevicesFolder()))
      devices.push_back(SoundDevice(file));
  if (devices.empty()) throw InputError("no device is described; give --device");
  return devices;
}

std::string_view Verdict(const CheckResult& result) {
  if (!result.wasMade) return "not made";
  return result.HasPassed() ? "passed" : "FAILED";
}

// "107 loads", "1 symbol".
std::string CountText(const CheckResult& result) {
  std::string_view counted = result.check->counted;
  if (result.count == 1) counted.remove_suffix(1);
  return fmt::format("{} {}", result.count, counted);
}

void SayResult(const CheckResult& result, Output& output) {
  output.Say(fmt::format("{:<14}{:<10}{}\n", result.check->name, Verdict(result),
                         result.wasMade ? CountText(result) : "a check before it has failed"));
  for (const CheckFinding& finding : result.findings)
    output.Say(fmt::format("    {}{}{}\n", finding.place, finding.place.empty() ? "" : ": ", finding.text));
}

Json ToJson(const CheckResult& result) {
  Json findings = Json::array();
  for (const CheckFinding& finding : result.findings)
    findings.push_back({{"place", finding.place}, {"text", finding.text}});
  return {{"name", result.check->name},
          {"passed", result.wasMade ? Json(result.HasPassed()) : Json(nullptr)},
          {"counted", result.check->counted},
          {"count", result.count},
          {"findings", findings}};
}

int RunChecks(const CheckPluginOptions& options, Output& output) {
  const PluginCheckRequest request{options.plugin, DevicesNamed(options.devices), options.checks,
                                   std::chrono::seconds(options.seconds)};
  output.document["plugin"] = options.plugin;
  output.document["devices"] = Json::array();
  for (const DeviceDescription& device : request.devices) output.document["devices"].push_back(device.name);
  output.document["checks"] = Json::array();
  const std::vector<CheckResult> results = CheckPlugin(request, [&](const CheckResult& result) {
    SayResult(result, output);
    (void)std::fflush(stdout);
    output.document["checks"].push_back(ToJson(result));
  });
  const auto failed = std::count_if(results.begin(), results.end(), [](const CheckResult& result) {
    return result.wasMade && !result.HasPassed();
  });
  if (failed == 0) return output.Finish("check-plugin", kDone);
  const std::string error = fmt::format("{} of {} checks failed", failed, results.size());
  output.Complain(error);
  return output.Finish("check-plugin", kDiffers, error);
}

}  // namespace

void AddCheckPlugin(CLI::App& program, Job& chosen) {
  AddVerb<CheckPluginOptions>(
      program, chosen, "check-plugin",
      "Hold any build of the plug-in to its contract, on simulated chips; exit code 4 if it breaks it",
      [](CLI::App& verb, CheckPluginOptions& options) {
        verb.add_option("plugin", options.plugin, "The library")->required()->type_name("FILE");
        verb.add_option("--device", options.devices,
                        "With this device only, instead of all that are described")
            ->type_name("NAME|FILE")
            ->take_all()
            ->allow_extra_args(false);
        verb.add_option("--check", options.checks, ChecksText())
            ->type_name("NAME")
            ->take_all()
            ->allow_extra_args(false);
        verb.add_option("--patience", options.seconds, "How long one call into the plug-in may take")
            ->type_name("SECONDS")
            ->check(CLI::Range(1U, 3600U).description(""))
            ->capture_default_str();
        AddJsonOption(verb);
      },
      RunChecks);
}

}  // namespace host::cli
