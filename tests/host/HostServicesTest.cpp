#include "host/plugin/HostServices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "FakeProbe.h"
#include "InputErrorOf.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Calls the table as a plug-in does: through the object's first word.
struct HostServicesTest : testing::Test {
  FakeProbe probe;
  PropertyStore settings{PropertyStore::Values{{"SectorSize", "800"}}};
  HostServices services{probe, settings};
  HostObject* object = &services;
  const HostFunctionTable& table = *services.table;

  // An error text, or "ok".
  static std::string Text(const char* error) { return error == nullptr ? "ok" : error; }
  void Select(const char* core) { ASSERT_EQ(Text(table.setCoreById(object, core)), "ok"); }
  void SelectConnected(const char* core) {
    Select(core);
    ASSERT_EQ(Text(table.connect(object, false)), "ok");
    probe.log.clear();
  }
};

TEST_F(HostServicesTest, CoresLoseTheirConnectionWithWhatCarriesIt) {
  const struct {
    const char* core;  // current when it happens
    const char* what;
    std::function<const char*()> happens;
    bool keepsDebugPort;
    bool keepsSecureAp;
  } cases[] = {
      {"CS_DAP_0", "let go", [&] { return table.disconnect(object, true); }, false, false},
      {"CS_DAP_0", "renewed", [&] { return table.reConnect(object); }, true, false},
      {"CS_DAP_0", "connected again", [&] { return table.connect(object, false); }, true, false},
      {"SEC_AP", "let go", [&] { return table.disconnect(object, true); }, true, false},
      {"SEC_AP", "renewed", [&] { return table.reConnect(object); }, true, true},
      {"Cortex", "reset", [&] { return table.resetTarget(object, 0); }, false, false},
  };
  for (const auto& c : cases) {
    for (const std::string failure : {"", "probe unplugged"}) {
      SCOPED_TRACE(fmt::format("{} {}, \"{}\"", c.core, c.what, failure));
      SelectConnected("CS_DAP_0");
      SelectConnected("SEC_AP");
      Select(c.core);
      probe.failure = failure;
      EXPECT_EQ(Text(c.happens()), failure.empty() ? "ok" : failure);
      // What failed half-way cannot be relied on.
      const bool isDebugPort = std::string_view(c.core) == "CS_DAP_0";
      EXPECT_EQ(services.IsConnected(Core::DebugPort), c.keepsDebugPort && (failure.empty() || !isDebugPort));
      EXPECT_EQ(services.IsConnected(Core::SecureAp), c.keepsSecureAp && failure.empty());
    }
  }
}

TEST_F(HostServicesTest, MemoryIsReachedInTheWidthThatIsAskedFor) {
  SelectConnected("CS_DAP_0");
  std::uint8_t bytes[4] = {1, 2, 3, 4};
  const Debugger::Address address(0x20000000U);
  EXPECT_EQ(Text(table.writeMemory(object, bytes, 4, address, 0, 1)), "ok");
  EXPECT_EQ(Text(table.readMemory(object, bytes, 2, address, 0, 2)), "ok");
  EXPECT_EQ(Text(table.readMemory(object, bytes, 1, address, 0, 3)),
            "access width of 3 bytes is not offered");
  EXPECT_THAT(probe.log,
              ElementsAre("write memory 20000000 by 1: 01 02 03 04", "read memory 20000000 by 2: 4"));
}

TEST_F(HostServicesTest, EveryFaultThatIsAskedForComes) {
  services.Fail({2, "second"});
  services.Fail({3, ""});
  std::vector<std::string> answers(4);
  for (std::string& answer : answers) answer = Text(table.setCore(object, "CS_DAP_0"));
  EXPECT_THAT(answers, ElementsAre("ok", "second", "", "ok"));
}

TEST_F(HostServicesTest, ACancelledSessionRefusesAllButProperties) {
  services.Cancel();
  EXPECT_EQ(Text(table.setCoreById(object, "SEC_AP")), "cancelled");
  EXPECT_EQ(Text(table.sleep(object, 1000)), "cancelled");
  EXPECT_STREQ(table.getValueOfProperty(object, "SectorSize"), "800");
  EXPECT_EQ(services.CurrentCore(), Core::DebugPort);
  services.ResetCancel();
  EXPECT_EQ(Text(table.sleep(object, 1)), "ok");
  EXPECT_THAT(probe.log, ElementsAre("sleep 1"));
}

TEST_F(HostServicesTest, AnObserverThatFailsFailsNoCall) {
  struct Failing : HostCallObserver {
    int calls = 0;
    void Saw(const HostCall&, std::uint64_t) override {
      ++calls;
      throw std::runtime_error("disk full");
    }
  } first, second;
  services.AddObserver(first);
  services.AddObserver(second);
  EXPECT_EQ(Text(table.setCore(object, "CS_DAP_0")), "ok");
  EXPECT_EQ(Text(table.setCore(object, "nowhere")), "there is no core \"nowhere\"");
  EXPECT_EQ(second.calls, 2);
  services.onMessage = [](bool, const std::string&) { throw 2; };
  EXPECT_EQ(Text(table.reportInfo(object, "text")), "the host failed without a reason");
}

TEST_F(HostServicesTest, RefusesAccessesOnACoreThatIsNotConnected) {
  std::uint32_t word = 0;
  unsigned long long value = 0;
  const Debugger::Address address(FakeProbe::kStatusAddress);
  EXPECT_EQ(Text(table.readReg(object, address, &value)), "CS_DAP_0 is not connected");
  EXPECT_EQ(Text(table.writeReg(object, address, 1)), "CS_DAP_0 is not connected");
  EXPECT_EQ(Text(table.readMemory(object, &word, 4, address, 0, 1)), "CS_DAP_0 is not connected");
  Select("SEC_AP");
  EXPECT_EQ(Text(table.writeMemory(object, &word, 1, Debugger::Address(0U), 1, 4)),
            "SEC_AP is not connected");
  EXPECT_EQ(Text(table.readMemory(object, &word, 1, Debugger::Address(0U), 1, 4)), "SEC_AP is not connected");
  EXPECT_THAT(probe.log, IsEmpty());
  EXPECT_EQ(services.BytesWritten(), 0U);
}

TEST_F(HostServicesTest, WordsOnTheSecurityPortAloneGoThroughItsDataRegisterInOneTransfer) {
  SelectConnected("SEC_AP");
  const std::uint32_t out[] = {0x00000001, 0x5C17E94B};
  std::uint32_t in[2] = {};
  probe.wordsToPop = {0xAABBCCDD, 7};
  EXPECT_EQ(Text(table.writeMemory(object, out, 2, Debugger::Address(0U), 1, 4)), "ok");
  EXPECT_EQ(Text(table.readMemory(object, in, 2, Debugger::Address(0U), 1, 4)), "ok");
  EXPECT_THAT(in, ElementsAre(0xAABBCCDD, 7));
  const std::tuple<unsigned int, int, std::size_t> refused[] = {{4, 1, 4}, {0, 0, 4}, {0, 1, 1}};
  for (const auto& [address, page, size] : refused) {
    const std::string told = fmt::format(
        "SEC_AP has 32-bit words at address 0 of page 1 only, not elements of {} bytes at "
        "0x{:08x} of page {}",
        size, address, page);
    EXPECT_EQ(Text(table.writeMemory(object, out, 1, Debugger::Address(address), page, size)), told);
    EXPECT_EQ(Text(table.readMemory(object, in, 1, Debugger::Address(address), page, size)), told);
  }
  EXPECT_THAT(probe.log, ElementsAre("push 1 5c17e94b", "pop 2"));
  EXPECT_EQ(services.BytesWritten(), 8U);
}

TEST_F(HostServicesTest, RefusesWhatDoesNotFit32BitsAndNamesItDoesNotKnow) {
  SelectConnected("CS_DAP_0");
  unsigned long long value = 0;
  EXPECT_EQ(Text(table.readReg(object, Debugger::Address(0x100000000ULL), &value)),
            "address 0x100000000 is wider than 32 bits");
  EXPECT_EQ(Text(table.writeReg(object, Debugger::Address(FakeProbe::kStatusAddress), 0x100000000ULL)),
            "register value 0x100000000 is wider than 32 bits");
  Debugger::Address address(5U);
  EXPECT_EQ(Text(table.lookupReg(object, "NOTHING", &address)), "there is no register \"NOTHING\"");
  EXPECT_EQ(Extract(address), 5U);
  EXPECT_EQ(Text(table.setCore(object, "cortex")), "there is no core \"cortex\"");
  EXPECT_EQ(services.CurrentCore(), Core::DebugPort);
  EXPECT_EQ(Text(table.resetTarget(object, 1)), "reset kind 1 is not offered");
  EXPECT_EQ(table.getValueOfProperty(object, "sectorsize"), nullptr);
  EXPECT_THAT(probe.log, IsEmpty());
}

TEST_F(HostServicesTest, AnswersReservedSlotsWithAnErrorText) {
  const std::pair<int, HostFunctionTable::Reserved> slots[] = {
      {2, table.reserved2to6[0]},    {6, table.reserved2to6[4]}, {9, table.reserved8to9[1]},
      {18, table.reserved15to18[3]}, {21, table.reserved21},     {26, table.reserved23to26[3]},
      {32, table.reserved28to32[4]}, {35, table.reserved35}};
  for (const auto& [slot, function] : slots)
    EXPECT_EQ(Text(reinterpret_cast<const char* (*)(HostObject*)>(function)(object)),
              fmt::format("this host offers no function {}", slot));
}

TEST(HostFaultTest, ReadsTheCallAndTheText) {
  const std::tuple<const char*, std::uint64_t, const char*> cases[] = {
      {"host:1", 1, "host call failed on request"},
      {"host:250=probe unplugged", 250, "probe unplugged"},
      {"host:3=", 3, ""},
      {"host:3=a=b", 3, "a=b"}};
  for (const auto& [text, call, failure] : cases) {
    ASSERT_TRUE(IsHostFault(text)) << text;
    EXPECT_EQ(ParseHostFault(text).call, call) << text;
    EXPECT_EQ(ParseHostFault(text).text, failure) << text;
  }
}

TEST(HostFaultTest, RefusesWhatIsNeither) {
  for (const std::string text :
       {"host:", "host:0", "host:x", "host:1x", "host:-1", "host:=text", "host:18446744073709551616"})
    EXPECT_EQ(InputErrorOf([&] { (void)ParseHostFault(text); }),
              "fault \"" + text + "\": expected host:N or host:N=TEXT, N counting from 1");
  EXPECT_FALSE(IsHostFault("saci:14:lost"));
}

}  // namespace
}  // namespace host
