// OTP bytes and RAM data, which wait for the end of the load.

#include "ConfigurationStore.h"
#include "DeviceTest.h"
#include "ExposedDevice.h"

namespace {

struct OtpRamTest : DeviceTest {
  OtpRamTest() {
    host.properties["FlashEraseSetting"] = "Do not erase sectors (program load only)";
    host.bootStatus = 0x81;
  }
};

TEST_F(OtpRamTest, BytesThatTheImageLeavesOutAreZero) {
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(kScfg, {1, 2}), "ok");
  EXPECT_EQ(Write(kOtp + kOtpSize - 2, {8, 9}), "ok");
  host.ForgetCalls();
  EXPECT_EQ(End(), "ok");
  Bytes scfg(kScfgSize), otp(2048);  // the OTP command has one size
  scfg[0] = 1;
  scfg[1] = 2;
  otp[kOtpSize - 2] = 8;
  otp[kOtpSize - 1] = 9;
  EXPECT_EQ(Payload(26), scfg);
  EXPECT_EQ(Payload(25), otp);
}

// A store of four bytes 0 that stands for address 0x100.
TEST(ConfigurationStore, TakesWhatFits) {
  const struct {
    std::uint32_t address;
    Bytes data, store;
  } cases[] = {
      {0x100, {1, 2, 3, 4}, {1, 2, 3, 4}},
      {0x102, {5}, {0, 0, 5, 0}},
      {0x103, {6, 7, 8}, {0, 0, 0, 6}},
      {0x104, {9}, {0, 0, 0, 0}},
      {0x101, {}, {0, 0, 0, 0}},
      {0xFFFFFFFF, {9}, {0, 0, 0, 0}},
      {0x100, {1, 2, 3, 4, 5}, {1, 2, 3, 4}},
  };
  for (const auto& c : cases) {
    Bytes store(4);
    CopyIntoStore(store, 0x100, c.data, c.address);
    EXPECT_EQ(store, c.store) << std::hex << c.address;
  }
  Bytes store(4);
  EXPECT_THROW(CopyIntoStore(store, 0x100, Bytes{1, 2}, 0xFF), std::runtime_error);
  EXPECT_EQ(store, Bytes(4));
}

TEST_F(OtpRamTest, RamPiecesAreWrittenInAddressOrderTheLastAtAnAddress) {
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(kRam + 4, {5, 6}), "ok");
  EXPECT_EQ(Write(kRam, {1, 2, 3, 4, 9}), "ok");  // overlaps, and stays a piece of its own
  EXPECT_EQ(Write(kRam + 4, {7}), "ok");
  host.ForgetCalls();
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(Deeds(),
            "WriteMemory CS_DAP_0 @0x20000000 page 0 size 1 x5: 01 02 03 04 09\n"
            "ReadMemory CS_DAP_0 @0x20000000 page 0 size 1 x5\n"
            "WriteMemory CS_DAP_0 @0x20000004 page 0 size 1 x1: 07\n"
            "ReadMemory CS_DAP_0 @0x20000004 page 0 size 1 x1\n"
            "Cortex Connect false\n"
            "SEC_AP Disconnect true");
}

TEST_F(OtpRamTest, TheFirstWrongByteIsNamed) {
  const struct {
    std::vector<std::uint32_t> wrong;
    const char* error;
  } cases[] = {
      {{0}, "Verification error at address 0x20000a00, expected 0x01 but read 0x81"},
      {{3, 4}, "Verification error at address 0x20000a03, expected 0xab but read 0x2b"},
      {{4}, "Verification error at address 0x20000a04, expected 0x0f but read 0x8f"},
  };
  for (const auto& c : cases) {
    host.readFlips.clear();
    host.memory.clear();
    for (const std::uint32_t byte : c.wrong) host.readFlips[kRam + 0xA00 + byte] = 0x80;
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Write(kRam + 0xB00, {1}), "ok");
    EXPECT_EQ(Write(kRam + 0xA00, {0x01, 0x00, 0xFF, 0xAB, 0x0F}), "ok");
    host.ForgetCalls();
    EXPECT_EQ(End(), c.error);
    EXPECT_EQ(host.memory.count(kRam + 0xB00), 0U);  // the piece behind is not written
    EXPECT_EQ(CallCount("SetCore Cortex"), 0U);
  }
}

TEST_F(OtpRamTest, AClosedPortIsToldOnceAndOnlyIfThereIsData) {
  host.bootStatus = 0x20;
  host.ahbApEnabled = false;
  for (const bool withData : {true, false}) {
    EXPECT_EQ(Start(), "ok");
    if (withData) {
      EXPECT_EQ(Write(kRam, {1}), "ok");
      EXPECT_EQ(Write(kRam + 9, {1}), "ok");
    }
    host.ForgetCalls();
    EXPECT_EQ(End(), "ok");
    EXPECT_EQ(Messages(), withData
                              ? "Error Debugging is not allowed, or has not been authorized. Data will not "
                                "be written to RAM."
                              : "");
    EXPECT_EQ(host.memory.size(), 0U);
    EXPECT_EQ(Plot().back(), "SEC_AP Disconnect true");
  }
}

TEST_F(OtpRamTest, ADetachedPortIsAttachedFirst) {
  ExposedDevice exposed(host);
  exposed.load.ramData[kRam] = {1};
  host.connectedCores = {};
  host.ForgetCalls();
  exposed.ProgramStoredRamData();
  EXPECT_EQ(Deeds(),
            "CS_DAP_0 Connect false\n"
            "WriteMemory CS_DAP_0 @0x20000000 page 0 size 1 x1: 01\n"
            "ReadMemory CS_DAP_0 @0x20000000 page 0 size 1 x1");
}

TEST_F(OtpRamTest, RamIsWrittenOnceDebuggingIsAuthenticated) {
  host.bootStatus = 0x90;
  host.ahbApEnabled = false;
  host.ReplyAlways(5, {.data = {1, 0}});
  host.onCommand = [this](const SaciCommand& command) {
    if (command.Id() == 6) host.ahbApEnabled = true;
  };
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(kRam, {1}), "ok");
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 5, 6, 7}));
  EXPECT_EQ(host.memory.size(), 1U);
}

}  // namespace
