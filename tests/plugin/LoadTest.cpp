// What plays/load.play does not show of a load: bytes, exact calls, and arguments that no script can give.

#include "DeviceTest.h"

namespace {

using LoadTest = DeviceTest;

TEST_F(LoadTest, AnEmptyLoadOnlyReattaches) {
  Play("status=81; OtpSize=0; start");
  EXPECT_EQ(Joined(host.calls), "");
  for (const int state : {0, 3, -1, 255}) EXPECT_EQ(Device().Load(static_cast<ProgramState>(state)), "ok");
  EXPECT_EQ(Joined(host.calls), "");
  Play("end");
  EXPECT_EQ(Joined(host.calls),
            Joined({"SetCoreById CS_DAP_0", "LookupReg CFGAP_DEVICESTATUS",
                    "ReadReg CFGAP_DEVICESTATUS",                                  // in SACI?
                    "LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS",  // debug port open?
                    "SetCoreById CS_DAP_0", "IsConnected",                         // RAM data: none
                    "LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS",
                    "LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS", "SetCore Cortex",
                    "Connect false", "SetCoreById SEC_AP", "Disconnect true"}));
}

// Nonsense lengths must not reach past the block that the host handed over.
TEST_F(LoadTest, NegativeLengthsAreSurvived) {
  const Bytes block = Pattern(4);
  for (const std::uint32_t address : {0U, 0x800U, kCcfg, kUserRecord, kScfg, kOtp, kRam, 0xFFFFFFFCU}) {
    Play("start");
    for (const int length : {-1, -4, -0x800, INT32_MIN}) {
      EXPECT_STRNE(Device()->WriteDataToFlash(block.data(), Debugger::Address(address), length, 0), nullptr);
      EXPECT_TRUE(host.commands.empty());
    }
  }
}

}  // namespace
