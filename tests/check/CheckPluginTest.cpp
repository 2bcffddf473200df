#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

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
  // Of all devices together: what is asked of a plug-in does not become less unnoticed.
  const std::map<std::string_view, std::uint64_t> counts = {
      {"exports", 1},  {"contract", 125},    {"loads", 114},    {"words", 20586},
      {"memory", 240}, {"chip-faults", 505}, {"operations", 80}};
  for (const host::CheckResult& result :
       Check(TOVIK_PLUGIN_PATH, checks, host::ListDeviceFiles(TOVIK_DEVICES_DIR), 60)) {
    EXPECT_THAT(TextsOf(result), testing::IsEmpty()) << result.check->name;
    const auto count = counts.find(result.check->name);
    if (count != counts.end()) {
      EXPECT_EQ(result.count, count->second) << result.check->name;
    }
  }
}

TEST(CheckPlugin, FindsTheOneThingThatIsWrong) {
  const struct {
    const char* fault;
    const char* check;
    const char* finding;
  } cases[] = {
      {"slot", "contract", "the slot of ExecuteRuneFunction leads nowhere"},
      {"version", "contract",
       R"(serin-s20: the first message is "Flash loader: Serin_Corvel_FLASH_LIBRARY_VERSION 3.2.0.187" instead of "Flash loader: NAME 4....")"},
      {"result", "contract", "a host without properties: Initialize writes its results when it fails"},
      {"throw", "contract",
       "PerformOperation throws \"Unsupported Operation Code: 'nothing of the kind'\" at"},
      {"silent", "contract", "PerformOperation fails without a text"},
      {"success", "contract", "serin-s20: PerformOperation succeeds with what cannot be done"},
      {"print", "contract", "properties: writes to standard output or error: \"Flash loader: "},
      {"memory", "loads", "as described: "},
      {"connect", "loads",
       R"(as described: breaks the rule "connect first" in host call 64: ReadReg while CS_DAP_0 is not connected)"},
      {"keep-port", "loads", "breaks the rule \"give back\" in host call "},
      {"long", "loads", "as described: the load fails: \"Error when programming SCFG - Parameter data"},
      {"byte", "loads",
       R"(as described: the load succeeds, and the chip is not as it should be: MAIN holds 0x0a at 0xfff instead of 0x0b, and 4 bytes more are wrong; OTP holds 0xfe at 0x3ff instead of 0xff; RAM holds 0xdb at 0xf instead of 0xda, and 2 bytes more are wrong)"},
      {"ccfg", "loads", "the load reports an error: \"Image must contain (correctly sized) CCFG"},
      {"byte", "loads", "serin-s20, comparison with another bit in RAM: and 14 more"},
      {"ccfg", "loads", "CCFG holds 0xff at 0x0 instead of 0x80, and 1913 bytes more are wrong"},
      {"main", "loads", "MAIN holds 0xff at 0x0 instead of 0x5f, and 18432 bytes more are wrong"},
      {"main", "loads", "MAIN holds 0xff at 0x0 instead of 0x5f, and 11325 bytes more are wrong"},
      {"throw", "loads", "0x4c000000 throws \"The Custom Configuration (CCFG) contain permission settings"},
      {"throw", "loads",
       "comparison with another bit in fill beside a piece of MAIN: WriteDataToFlash of 3997 bytes"},
      {"success", "loads", "serin-s20, an image that locks the chip: the load succeeds"},
      {"success", "loads", "serin-s20, comparison with another bit in SCFG: tells no difference"},
      {"unset", "words",
       R"(the same load twice: host call 730 depends on memory that nobody has set: WriteMemory: byte 1024 of 1028 is 0x5a, then 0xa5)"},
      {"leak", "memory", "one device object for all loads: memory grows by 2"},
      {"file", "memory", "of which every second one fails: 30 files stay open after 20 loads"},
      {"success", "memory", "in host call 200: a call failed with \"the probe says: no (0x17)\", Wri"},
      {"crash", "failed-calls",
       "host call 1 fails with \"the probe says: no (0x17)\": crashes with SIGABRT in creation"},
      {"hang", "failed-calls", "hangs in creation and Initialize"},
      {"exit", "failed-calls", "ends the process with exit code 0 in creation and Initialize"},
      {"swallow", "failed-calls", "breaks the rule \"stop\" in host call "},
      {"success", "failed-calls", "breaks the rule \"pass on\" in host call "},
      {"state", "failed-calls",
       R"((GetValueOfProperty), then a load on the same object: the load succeeds, and the chip is not as it should be: MAIN holds 0x39 at 0x0 instead of 0x57, and 522213 bytes more are wrong; CCFG)"},
      {"crc", "chip-faults",
       "result=135: the load says that it succeeds, and the chip is not as it should be"},
      {"crc", "chip-faults",
       R"(cell:0x4c000000: the load says that it succeeds, and the chip is not as it should be: CCFG holds 0xff at 0x0 instead of 0x54; SCFG holds 0xff at 0x0 instead of 0x0e, and 316 bytes more are wrong; OTP)"},
      {"erase", "operations",
       R"(serin-s20, Erase: leaves the chip otherwise than it should: MAIN holds 0x39 at 0x0 instead of 0xff, and 522223 bytes more are wrong; CCFG holds 0xaf at 0x0 instead of 0xff, and 2040 bytes more are wrong; SCFG holds 0x6b at 0x0 instead of 0xff, and 319 bytes more are wrong)"},
      {"success", "operations", "serin-s20, ReadHsmUpdateStatus: succeeds without a security module"},
      {"success", "operations", "serin-s20, EnsureAuthentication: succeeds with arguments that are none"},
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
