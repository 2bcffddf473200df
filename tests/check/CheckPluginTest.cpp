#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/check/PluginCheck.h"

// The real plug-in, and one that does everything as it does but for one thing, held to the contract.

namespace {

using testing::Contains;
using testing::HasSubstr;

std::vector<std::string> TextsOf(const host::CheckResult& result) {
  std::vector<std::string> texts;
  for (const host::CheckFinding& finding : result.findings)
    texts.push_back(finding.place + ": " + finding.text);
  return texts;
}

std::vector<host::CheckResult> Check(const std::filesystem::path& plugin, std::vector<std::string> only,
                                     const std::vector<std::filesystem::path>& devices, int seconds) {
  host::PluginCheckRequest request{plugin, {}, std::move(only), std::chrono::seconds(seconds)};
  for (const std::filesystem::path& device : devices)
    request.devices.push_back(host::ReadDeviceDescription(device));
  return host::CheckPlugin(request, [](const host::CheckResult&) {});
}

TEST(CheckPlugin, IsContentWithTheRealOne) {
  std::vector<std::string> checks = {"exports", "contract",    "loads",     "words",
                                     "memory",  "chip-faults", "operations"};
  constexpr bool kSampled = TOVIK_SAMPLED_SWEEPS;
  if (!kSampled) checks.emplace_back("failed-calls");
  for (const host::CheckResult& result :
       Check(TOVIK_PLUGIN_PATH, checks, host::ListDeviceFiles(TOVIK_DEVICES_DIR), 60)) {
    EXPECT_THAT(TextsOf(result), testing::IsEmpty()) << result.check->name;
  }
}

TEST(CheckPlugin, FindsTheOneThingThatIsWrong) {
  const struct {
    const char* fault;
    const char* check;
    const char* finding;
  } cases[] = {
      {"slot", "contract", "the slot of ExecuteRuneFunction leads nowhere"},
      {"version", "contract", "the first message is \"Flash loader: "},
      {"result", "contract", "without properties: Initialize writes its results when it fails"},
      {"throw", "contract", "throws \"Unsupported Operation Code: 'nothing of the kind'\" at the host"},
      {"silent", "contract", "PerformOperation fails without a text"},
      {"print", "contract", "writes to standard output or error: \"Flash loader: "},
      {"memory", "loads", "as described: "},
      {"connect", "loads", "breaks the rule \"connect first\" in host call "},
      {"keep-port", "loads", "breaks the rule \"give back\" in host call "},
      {"long", "loads", "breaks the rule \"command\" in host call "},
      {"byte", "loads", "MAIN holds 0x"},
      {"ccfg", "loads", "the load reports an error: \"Image must contain (correctly sized) CCFG"},
      {"unset", "words", "depends on memory that nobody has set: WriteMemory"},
      {"leak", "memory", "one device object for all loads: memory grows by 2"},
      {"file", "memory", "files stay open after 20 loads"},
      {"crash", "failed-calls",
       "host call 1 fails with \"the probe says: no (0x17)\": crashes with SIGABRT in "},
      {"hang", "failed-calls", "hangs in creation and Initialize"},
      {"exit", "failed-calls", "ends the process with exit code 0 in "},
      {"swallow", "failed-calls", "breaks the rule \"stop\" in host call "},
      {"success", "failed-calls", "breaks the rule \"pass on\" in host call "},
      {"state", "failed-calls", "then a load on the same object: the load "},
      {"crc", "chip-faults",
       "result=135: the load says that it succeeds, and the chip is not as it should be"},
      {"erase", "operations", "Erase: leaves the chip otherwise than it should: MAIN holds 0x"},
      {"size", "operations", "DeviceInfoFlashSize is \"1 KB\" of a chip with 512 KB"},
  };
  const std::filesystem::path folder = testing::TempDir() + "broken-plugins";
  std::filesystem::create_directories(folder);
  for (const auto& c : cases) {
    const std::filesystem::path plugin = folder / (std::string(c.fault) + ".so");
    std::filesystem::remove(plugin);
    std::filesystem::create_symlink(TOVIK_BROKEN_PLUGIN_PATH, plugin);
    const bool hangs = c.fault == std::string_view("hang");
    const std::vector<host::CheckResult> results =
        Check(plugin, {c.check}, {TOVIK_DEVICES_DIR "/serin-s20.xml"}, hangs ? 1 : 60);
    EXPECT_THAT(TextsOf(results.front()), Contains(HasSubstr(c.finding))) << c.fault;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
