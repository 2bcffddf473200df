#include "host/plugin/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "FakeProbe.h"
#include "host/plugin/HostServices.h"

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

}  // namespace
}  // namespace host
