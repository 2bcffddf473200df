#include "host/plugin/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "FakeProbe.h"
#include "InputErrorOf.h"
#include "WireScript.h"
#include "host/plugin/HostServices.h"
#include "host/report/StoryText.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct TraceTest : testing::Test {
  std::string path = testing::TempDir() + "tovik-trace-" + std::to_string(getpid()) + ".jsonl";
  FakeProbe probe;
  PropertyStore settings{PropertyStore::Values{{"SectorSize", "800"}, {"DebugPassword", "open-sesame"}}};
  HostServices services{probe, settings};
  const HostFunctionTable& table = *services.table;

  ~TraceTest() override { std::filesystem::remove(path); }
  std::vector<std::string> Lines() const {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
};

TEST_F(TraceTest, RecordsEveryCallWithWhatWentInAndWhatCameOut) {
  Trace trace(path, {"tovik-flash 1.0", "lib.so", "serin-s20", "hs"}, {});
  services.AddObserver(trace);
  probe.elapsedNs = 1'500'000;
  services.TellBegin({.function = "WriteDataToFlash", .address = 0x800, .bytes = 6});
  (void)table.getValueOfProperty(&services, "SectorSize");
  (void)table.connect(&services, false);
  unsigned long long value = 0;
  (void)table.readReg(&services, Debugger::Address(FakeProbe::kStatusAddress), &value);
  const std::uint8_t bytes[] = {1, 2, 0xAB};
  (void)table.writeMemory(&services, bytes, 3, Debugger::Address(0x20000000U), 7, 1);
  (void)table.setCoreById(&services, "NOWHERE");
  services.TellEnd({.function = "WriteDataToFlash", .error = "there is no core"});
  // Read while the trace is open: a plug-in that stops the process takes no line along.
  EXPECT_THAT(
      Lines(),
      ElementsAre(
          R"({"format":"tovik-flash trace","version":1,"program":"tovik-flash 1.0","plugin":"lib.so","device":"serin-s20","probe":"hs"})",
          R"({"begin":"WriteDataToFlash","ms":1.5,"address":"0x00000800","bytes":6})",
          R"({"n":1,"ms":1.5,"core":"CS_DAP_0","call":"GetValueOfProperty","name":"SectorSize","text":"800"})",
          R"({"n":2,"ms":1.5,"core":"CS_DAP_0","call":"Connect","value":"0x00000000"})",
          R"({"n":3,"ms":1.5,"core":"CS_DAP_0","call":"ReadReg","address":"0x00010008","value":"0x00002005"})",
          R"({"n":4,"ms":1.5,"core":"CS_DAP_0","call":"WriteMemory","address":"0x20000000","page":7,"bytes":3,"element":1,"data":"0102ab"})",
          R"({"n":5,"ms":1.5,"core":"CS_DAP_0","call":"SetCoreById","name":"NOWHERE","error":"there is no core \"NOWHERE\""})",
          R"({"end":"WriteDataToFlash","ms":1.5,"error":"there is no core"})"));
  EXPECT_EQ(trace.Loss(), std::nullopt);
}

TEST_F(TraceTest, HidesPasswordsAndNothingElse) {
  const auto bytes = [](std::string_view text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
  };
  Trace trace(path, {}, {{"DebugPassword"}, {bytes("open!"), bytes("")}});
  services.AddObserver(trace);
  const struct {
    const char* core;
    std::string_view bytes;  // whole words
    const char* data;        // as the trace shows it
  } cases[] = {
      {"SEC_AP", {"open!\0\0\0", 8}, "(hidden)"},
      {"SEC_AP", {"\x06\x01\x02\x00open!\0\0\0", 12}, "06010200(hidden)"},
      {"SEC_AP", {"open", 4}, "6f70656e"},
      {"SEC_AP", {"open!\0\0\0zzzz", 12}, "6f70656e210000007a7a7a7a"},
      {"SEC_AP", {"zzzz", 4}, "7a7a7a7a"},
      {"CS_DAP_0", {"open!\0\0\0", 8}, "6f70656e21000000"},
      // No more than 32 bytes are shown.
      {"CS_DAP_0", "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz",
       "7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a7a"},
  };
  for (const auto& c : cases) {
    (void)table.setCoreById(&services, c.core);
    (void)table.connect(&services, false);
    (void)table.writeMemory(&services, c.bytes.data(), c.bytes.size() / 4, Debugger::Address(0U), 1, 4);
    EXPECT_THAT(Lines().back(), HasSubstr(fmt::format(R"("data":"{}")", c.data)));
  }
  (void)table.getValueOfProperty(&services, "DebugPassword");
  EXPECT_THAT(Lines().back(), HasSubstr(R"-("text":"(hidden)")-"));
  (void)table.setValueOfProperty(&services, "DebugPassword", "");
  EXPECT_THAT(Lines().back(), HasSubstr(R"("text":"")"));
  (void)table.setValueOfProperty(&services, "HsmSysInfo", "open!");
  EXPECT_THAT(Lines().back(), HasSubstr(R"("text":"open!")"));
}

TEST_F(TraceTest, AFullDiskEndsTheTraceAndNothingElse) {
  Trace trace("/dev/full", {}, {});
  services.AddObserver(trace);
  EXPECT_EQ(table.setCoreById(&services, "SEC_AP"), nullptr);
  EXPECT_EQ(trace.Loss(), "trace file /dev/full: No space left on device; it ends after 0 lines");
}

// A block that fails at its second sector, after a wait; then a call in which the process is stopped.
void RecordSession(const std::string& path) {
  Trace trace(path, {}, {});
  WireScript wire(trace);
  trace.Begins({.function = "WriteDataToFlash", .address = 0x1000, .bytes = 4096}, 2'000'000);
  wire.Call({.function = "GetValueOfProperty", .subject = "SectorSize", .text = "800"});
  wire.Call({.function = "ResetTarget", .value = 0});
  wire.Send(0x0000000F, {0x5C17E94B, 0x1000});
  wire.Stream(std::vector<std::uint32_t>(512, 7));
  wire.Answer({0x0000000F});
  wire.Stream(std::vector<std::uint32_t>(512, 9));
  wire.Call({.function = "ReadReg", .value = 0, .roundTrips = 1});
  wire.Call({.function = "Sleep", .value = 100});
  wire.Answer({0x0084010F});
  trace.Ends({.function = "WriteDataToFlash", .error = "refused"}, 20'000'000);
  for (const unsigned offset : {0U, 1U, 2U}) wire.Memory("WriteMemory", 0x20000000 + offset, {7});
  trace.Begins({.function = "PerformOperation", .subject = "ReadDeviceInfo"}, 30'000'000);
}

TEST_F(TraceTest, IsToldAsWhatHappened) {
  RecordSession(path);
  StoryTeller teller;
  EXPECT_FALSE(ReplayTrace(path, teller).isCut);
  const SessionStory story = teller.Take();
  EXPECT_EQ("\n" + StoryLines(story, Detail::Brief), R"(
   at ms     took trips  What happened
     1.0                 outside of any call
     2.0     18.0     1  WriteDataToFlash 0x00001000, 4,096 bytes
     3.0      1.0          reset by the pin
     5.0      9.0     1    program MAIN, sectors 2..3 at 0x00001000: 1 of 2
                             sectors acknowledged, then 0x84, the flash hardware
                             failed, slept 1.0 ms
                           failed: refused
    20.0                 outside of any call
    20.0      0.0          write, 3 times, 0x20000000..0x20000002, 3 bytes
    30.0                 PerformOperation ReadDeviceInfo, which never ended
)");
  std::uint64_t sum = 0;
  for (const TimeShare& share : story.time.Shares()) sum += share.ns;
  EXPECT_EQ(sum, story.endNs);
}

// By the numbers of docs/wire-format.md: a command, bits of its argument, and what it was answered.
TEST(ExchangeTextTest, NamesEveryCommandAndEveryResult) {
  const struct {
    std::uint8_t command;
    std::uint16_t argument;
    std::optional<std::uint8_t> result;
  } cases[] = {{1, 0, 0x80},  {5, 0, 0x8C},       {6, 2, 0x88},  {7, 0, 0x86},     {8, 0, 0xFF},
               {9, 1, 0x83},  {12, 1, 0x84},      {13, 0, 0x8A}, {14, 7, 0x81},    {15, 0, 0x85},
               {16, 0, 0x87}, {16, 0x8000, 0x89}, {17, 1, 0},    {17, 2, 0},       {17, 3, 0x87},
               {20, 1, 0x8B}, {20, 0, {}},        {21, 0, 0x8D}, {25, 1024, 0x82}, {26, 276, {}},
               {27, 0, 0},    {27, 1, 0x42},      {28, 0, 0x90}, {33, 0, 0x91},    {34, 0, 0x8E},
               {35, 0, 0x8F}, {99, 0, 0}};
  std::string told;
  for (const auto& c : cases) {
    ToldExchange one;
    one.exchange.command = c.command;
    one.exchange.argument = c.argument;
    one.exchange.result = c.result;
    one.exchange.parameters = {0x1000, 0x800, 3, 4};
    told += ExchangeText(one, 0x800, Detail::Whole) + ((&c - cases) % 3 == 2 ? "\n" : "; ");
  }
  EXPECT_EQ(
      told,
      R"(no operation: 0x80, no such command; ask for the password id: 0x8c, authentication: challenge failed; submit the password, 2 words: 0x88, wrong password
leave SACI halted: 0x86, not allowed; leave SACI and shut down: 0xff, failed, no reason given; erase the chip, keeping the marked sectors: 0x83, wrong key
program the CCFG, all but the user record: 0x84, the flash hardware failed; program the CCFG user record: 0x8a, authentication: wrong level; program one MAIN sector, 0x00000800, 7 bytes: 0x81, wrong address
program MAIN, 0x00000800, 0 bytes: 0 sectors acknowledged, then 0x85, words came faster than they were programmed; verify MAIN, sector 2 at 0x00001000, CRC-32 0x00000003: 0x87, CRC-32 differs; verify MAIN, sector 2 at 0x00001000, blank check: 0x89, the blank check found a programmed bit
verify the CCFG, CRC-32 boot 0x00001000, whole 0x00000800, user record 0x00000003, debug 0x00000004: success; verify the CCFG, comparing nothing: success; verify the CCFG, CRC-32 boot 0x00001000, whole 0x00000800, debug 0x00000004: 0x87, CRC-32 differs
reset the device: 0x8b, authentication: wrong configuration; reset the device: no answer, and none is due; leave SACI and run: 0x8d, authentication: key hash differs
program OTP, 1,024 bytes: 0x82, wrong size; program the SCFG, 276 bytes: no answer; verify the SCFG, comparing nothing: success
verify the SCFG, CRC-32 0x00001000: 0x42, unknown result; erase the chip but CCFG and SCFG: 0x90, HSM firmware: version refused (anti-rollback); update the HSM firmware, 0 bytes sent: 0x91, HSM firmware: signature or decryption failed
read the HSM system information: 0x8e, the HSM did not boot; read the HSM update status: 0x8f, HSM firmware: wrong header; command 99: success
)");
}

// A process that is killed leaves any beginning of a trace.
TEST_F(TraceTest, IsReadAsFarAsItWasWritten) {
  RecordSession(path);
  std::string whole;
  for (const std::string& line : Lines()) whole += line + "\n";
  for (std::size_t size = whole.size() - 300; size <= whole.size(); ++size) {
    std::ofstream(path) << whole.substr(0, size);
    StoryTeller teller;
    const bool isBetween = whole[size - 1] == '\n' || whole[size] == '\n';
    EXPECT_EQ(ReplayTrace(path, teller).isCut, !isBetween) << size;
  }
}

TEST_F(TraceTest, RefusesValuesThatNoTraceHas) {
  const struct {
    const char* line;
    const char* key;
  } cases[] = {
      {R"("begin":"Delete","ms":-1)", "ms"},
      {R"("begin":"Delete","ms":1e300)", "ms"},
      {R"("begin":7,"ms":1)", "begin"},
      {R"("ms":1)", "end"},
      {R"("call":"ReadReg","ms":1)", "core"},
      {R"("call":"ReadReg","core":"","ms":1,"address":"here")", "address"},
      {R"("call":"WriteMemory","core":"","ms":1,"bytes":9999999999)", "bytes"},
      {R"("call":"WriteMemory","core":"","ms":1,"bytes":1,"data":"0102")", "data"},
      {R"("call":"WriteMemory","core":"","ms":1,"bytes":1,"data":"0x")", "data"},
  };
  for (const auto& c : cases) {
    std::ofstream(path) << R"({"format":"tovik-flash trace","version":1})"
                        << "\n{" << c.line << "}\n";
    StoryTeller teller;
    EXPECT_EQ(InputErrorOf([&] { (void)ReplayTrace(path, teller); }),
              fmt::format("{}:2: \"{}\" is missing, or not what a trace has there", path, c.key));
  }
}

}  // namespace
}  // namespace host
