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
using testing::Not;

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
  {
    Trace trace(path);
    services.TraceTo(&trace);
    probe.elapsedNs = 1'500'000;
    (void)table.getValueOfProperty(&services, "SectorSize");
    (void)table.connect(&services, false);
    unsigned long long value = 0;
    (void)table.readReg(&services, Debugger::Address(FakeProbe::kStatusAddress), &value);
    const std::uint8_t bytes[] = {1, 2, 0xAB};
    (void)table.writeMemory(&services, bytes, 3, Debugger::Address(0x20000000U), 0, 1);
    (void)table.setCoreById(&services, "NOWHERE");
  }
  EXPECT_THAT(
      Lines(),
      ElementsAre(
          R"({"n":1,"ms":1.5,"core":"CS_DAP_0","call":"GetValueOfProperty","name":"SectorSize","text":"800"})",
          R"({"n":2,"ms":1.5,"core":"CS_DAP_0","call":"Connect","value":"0x00000000"})",
          R"({"n":3,"ms":1.5,"core":"CS_DAP_0","call":"ReadReg","address":"0x00010008","value":"0x00002005"})",
          R"({"n":4,"ms":1.5,"core":"CS_DAP_0","call":"WriteMemory","address":"0x20000000","bytes":3,"element":1,"data":"0102ab"})",
          R"({"n":5,"ms":1.5,"core":"CS_DAP_0","call":"SetCoreById","name":"NOWHERE","error":"there is no core \"NOWHERE\""})"));
}

TEST_F(TraceTest, HidesPasswordsInPropertiesAndOnTheWire) {
  {
    Trace trace(path);
    trace.Hide("open-sesame");
    trace.Hide("");  // no password set hides nothing
    services.TraceTo(&trace);
    (void)table.getValueOfProperty(&services, "DebugPassword");
    (void)table.setCoreById(&services, "SEC_AP");
    (void)table.connect(&services, false);
    const char words[] = "\x06\x01\x03\x00open-sesame";  // 16 bytes with the closing zero
    (void)table.writeMemory(&services, words, 4, Debugger::Address(0U), 1, 4);
    const std::uint32_t other[] = {1};
    (void)table.writeMemory(&services, other, 1, Debugger::Address(0U), 1, 4);
  }
  const std::vector<std::string> lines = Lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(lines[0], HasSubstr(R"-("text":"(hidden)")-"));
  EXPECT_THAT(lines[3], HasSubstr(R"-("bytes":16,"element":4,"data":"(hidden)")-"));
  EXPECT_THAT(lines[4], HasSubstr(R"("data":"01000000")"));
}

}  // namespace
}  // namespace host
