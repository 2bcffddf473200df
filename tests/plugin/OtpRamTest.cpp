// OTP bytes and RAM data, which wait for the end of the load.

#include "ConfigurationStore.h"
#include "DeviceTest.h"
#include "ErrorOf.h"

namespace {

using OtpRamTest = DeviceTest;

TEST_F(OtpRamTest, BytesThatTheImageLeavesOutAreZero) {
  Play(kNoErase + "start 4E040000:0102 4E0208FE:0809 . end");
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
  } rows[] = {{0x100, {1, 2, 3, 4}, {1, 2, 3, 4}}, {0x102, {5}, {0, 0, 5, 0}},
              {0x103, {6, 7, 8}, {0, 0, 0, 6}},    {0x104, {9}, {0, 0, 0, 0}},
              {0x101, {}, {0, 0, 0, 0}},           {0xFFFFFFFF, {9}, {0, 0, 0, 0}},
              {0x0FF, {1, 2}, {0, 0, 0, 0}},       {0x100, {1, 2, 3, 4, 5}, {1, 2, 3, 4}}};
  for (const auto& row : rows) {
    Bytes store(4);
    EXPECT_EQ(ErrorOf([&] { CopyIntoStore(store, 0x100, row.data, row.address); }),
              row.address < 0x100 ? "Image data at 0x000000FF lies below its region" : "ok");
    EXPECT_EQ(store, row.store) << std::hex << row.address;
  }
}

TEST_F(OtpRamTest, RamPiecesAreWrittenInAddressOrderTheLastAtAnAddress) {
  // The second overlaps the first, and stays a piece of its own.
  Play("status=81; start 20000004:0506 20000000:0102030409 20000004:07 . end");
  EXPECT_EQ(Deeds(), Joined({"WriteMemory CS_DAP_0 @0x20000000 page 0 size 1 x5: 01 02 03 04 09",
                             "ReadMemory CS_DAP_0 @0x20000000 page 0 size 1 x5",
                             "WriteMemory CS_DAP_0 @0x20000004 page 0 size 1 x1: 07",
                             "ReadMemory CS_DAP_0 @0x20000004 page 0 size 1 x1", "Cortex Connect false",
                             "SEC_AP Disconnect true"}));
}

TEST(RamData, TheFirstWrongByteIsNamed) {
  const struct {
    std::vector<std::uint32_t> wrong;
    const char* error;
  } rows[] = {
      {{0}, "! Verification error at address 0x20000a00, expected 0x01 but read 0x81"},
      {{3, 4}, "! Verification error at address 0x20000a03, expected 0xab but read 0x2b"},
      {{4}, "! Verification error at address 0x20000a04, expected 0x0f but read 0x8f"},
  };
  for (const auto& row : rows) {
    Bench bench;
    for (const std::uint32_t byte : row.wrong) bench.host.readFlips[kRam + 0xA00 + byte] = 0x80;
    EXPECT_EQ(bench.Play("status=81; start 20000B00:01 20000A00:0100FFAB0F . end"), row.error);
    EXPECT_EQ(bench.host.memory.size(), 5U);  // the piece behind is not written
    EXPECT_EQ(bench.CallCount("SetCore Cortex"), 0U);
  }
}

TEST_F(OtpRamTest, AClosedPortIsToldOnceAndOnlyIfThereIsData) {
  EXPECT_EQ(Play("closed; start r 20000009:01 . end"),
            "1 5 | E Debugging is not allowed, or has not been authorized. Data will not be written to RAM.");
  EXPECT_EQ(Play("start . end"), "1 5");
  EXPECT_EQ(host.memory.size(), 0U);
  EXPECT_EQ(host.events.back(), "SEC_AP Disconnect true");
}

TEST_F(OtpRamTest, RamIsWrittenOnceDebuggingIsAuthenticated) {
  host.onCommand = [this](const SaciCommand& command) {
    if (command.Id() == 6) host.ahbApEnabled = true;
  };
  EXPECT_EQ(Play("status=90; closed; 5<1,0; start r . end"),
            "1 5 | I Debug authentication is required. Submitting authentication... | 6/3 | "
            "I Debug authentication was successful. | 7");
  EXPECT_EQ(host.memory.size(), 3U);
}

}  // namespace
