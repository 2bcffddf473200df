#include "host/plugin/HostServices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeProbe.h"

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
  bool IsConnected() {
    bool connected = false;
    EXPECT_EQ(Text(table.isConnected(object, &connected)), "ok");
    return connected;
  }
};

TEST_F(HostServicesTest, EachCoreHasAConnectionOfItsOwn) {
  EXPECT_FALSE(IsConnected());
  SelectConnected("CS_DAP_0");
  Select("SEC_AP");
  EXPECT_FALSE(IsConnected());
  SelectConnected("SEC_AP");
  EXPECT_EQ(Text(table.setCore(object, "CS_DAP_0")), "ok");
  EXPECT_EQ(Text(table.disconnect(object, true)), "ok");
  EXPECT_FALSE(IsConnected());
  Select("SEC_AP");
  EXPECT_TRUE(IsConnected());
  EXPECT_THAT(probe.log, ElementsAre("disconnect CS_DAP_0"));
}

TEST_F(HostServicesTest, AFailedConnectionLeavesTheCoreUnconnected) {
  Select("Cortex");
  probe.failure = "port is closed";
  EXPECT_EQ(Text(table.connect(object, false)), "port is closed");
  EXPECT_FALSE(IsConnected());
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

TEST_F(HostServicesTest, WordsOnTheSecurityPortGoThroughItsDataRegisterInOneTransfer) {
  SelectConnected("SEC_AP");
  const std::uint32_t out[] = {0x00000001, 0x5C17E94B};
  EXPECT_EQ(Text(table.writeMemory(object, out, 2, Debugger::Address(0U), 1, 4)), "ok");
  probe.wordsToPop = {0xAABBCCDD, 7};
  std::uint32_t in[2] = {};
  EXPECT_EQ(Text(table.readMemory(object, in, 2, Debugger::Address(0U), 1, 4)), "ok");
  EXPECT_THAT(in, ElementsAre(0xAABBCCDD, 7));
  EXPECT_THAT(probe.log, ElementsAre("push 1 5c17e94b", "pop 2"));
  EXPECT_EQ(services.BytesWritten(), 8U);
}

TEST_F(HostServicesTest, RefusesOtherAccessesOnTheSecurityPort) {
  SelectConnected("SEC_AP");
  const struct {
    unsigned int address;
    int page;
    std::size_t elementSize;
  } cases[] = {{4, 1, 4}, {0, 0, 4}, {0, 1, 1}};
  std::uint32_t word = 0;
  for (const auto& c : cases) {
    EXPECT_EQ(Text(table.writeMemory(object, &word, 1, Debugger::Address(c.address), c.page, c.elementSize)),
              fmt::format("SEC_AP has 32-bit words at address 0 of page 1 only, not elements of {} bytes at "
                          "0x{:08x} of page {}",
                          c.elementSize, c.address, c.page));
  }
  EXPECT_THAT(probe.log, IsEmpty());
}

TEST_F(HostServicesTest, RefusesWhatDoesNotFit32Bits) {
  SelectConnected("CS_DAP_0");
  unsigned long long value = 0;
  EXPECT_EQ(Text(table.readReg(object, Debugger::Address(0x100000000ULL), &value)),
            "address 0x100000000 is wider than 32 bits");
  EXPECT_EQ(Text(table.writeReg(object, Debugger::Address(FakeProbe::kStatusAddress), 0x100000000ULL)),
            "register value 0x100000000 is wider than 32 bits");
  EXPECT_THAT(probe.log, IsEmpty());
}

TEST_F(HostServicesTest, RefusesNamesItDoesNotKnow) {
  Debugger::Address address(5U);
  EXPECT_EQ(Text(table.lookupReg(object, "SECAP_NOTHING", &address)),
            "there is no register \"SECAP_NOTHING\"");
  EXPECT_EQ(Extract(address), 5U);
  EXPECT_EQ(Text(table.setCore(object, "cortex")), "there is no core \"cortex\"");
  EXPECT_EQ(services.CurrentCore(), Core::DebugPort);
  EXPECT_EQ(Text(table.resetTarget(object, 1)), "reset kind 1 is not offered");
  EXPECT_THAT(probe.log, IsEmpty());
}

TEST_F(HostServicesTest, AnswersReservedSlotsWithAnErrorText) {
  const struct {
    int slot;
    HostFunctionTable::Reserved function;
  } cases[] = {{2, table.reserved2to6[0]},    {6, table.reserved2to6[4]}, {9, table.reserved8to9[1]},
               {18, table.reserved15to18[3]}, {21, table.reserved21},     {26, table.reserved23to26[3]},
               {32, table.reserved28to32[4]}, {35, table.reserved35}};
  for (const auto& c : cases) {
    const auto call = reinterpret_cast<const char* (*)(HostObject*)>(c.function);
    EXPECT_EQ(Text(call(object)), fmt::format("this host offers no function {}", c.slot));
  }
}

TEST_F(HostServicesTest, PropertyNamesAreMatchedExactly) {
  EXPECT_STREQ(table.getValueOfProperty(object, "SectorSize"), "800");
  EXPECT_EQ(table.getValueOfProperty(object, "sectorsize"), nullptr);
}

}  // namespace
}  // namespace host
