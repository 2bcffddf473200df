// The start and the end of a load: what is cleared, what is programmed in which order, what the user is told.

#include <gmock/gmock.h>

#include "DeviceTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kNoCcfg =
    "Error Image must contain (correctly sized) CCFG section, when erase type is \"Chip erase\"";
constexpr const char* kNoScfg =
    "Error Image must contain (correctly sized) SCFG section, when erase type is \"Chip erase\"";
constexpr const char* kCcfgNotErased =
    "Info The CCFG sector has not been erased. Writing to CCFG could fail.";
constexpr const char* kScfgNotErased =
    "Info The SCFG sector has not been erased. Writing to SCFG could fail.";
constexpr const char* kOtpNotErased = "Info Chip has not been erased. Writing to OTP could fail.";

struct ResetSettingsTest : DeviceTest {
  // A load of the regions named by letters: main, ccfg, scfg, otp, ram. Calls are forgotten before its end.
  std::string LoadOf(const std::string& regions) {
    Device();
    EXPECT_EQ(Start(), "ok");
    for (const char region : regions) {
      const std::string written = region == 'm'   ? Write(0, Pattern(kSector))
                                  : region == 'c' ? Write(kCcfg, ccfg)
                                  : region == 's' ? Write(kScfg, Pattern(kScfgSize))
                                  : region == 'o' ? Write(kOtp, Pattern(kOtpSize))
                                                  : Write(kRam, Pattern(3));
      EXPECT_EQ(written, "ok") << region;
    }
    host.ForgetCalls();
    return End();
  }

  Bytes ccfg = OpenCcfg();
};

TEST_F(ResetSettingsTest, AnEmptyLoadOnlyReattaches) {
  host.bootStatus = 0x81;
  host.properties["OtpSize"] = "0";
  Device();
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Joined(host.calls), "");
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(Joined(host.calls),
            Joined({"SetCoreById CS_DAP_0", "LookupReg CFGAP_DEVICESTATUS",
                    "ReadReg CFGAP_DEVICESTATUS",                                  // in SACI?
                    "LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS",  // debug port open?
                    "SetCoreById CS_DAP_0", "IsConnected",                         // RAM data: none
                    "LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS",
                    "LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS", "SetCore Cortex",
                    "Connect false", "SetCoreById SEC_AP", "Disconnect true"}));
}

TEST_F(ResetSettingsTest, OtherStatesAreIgnored) {
  Device();
  for (const int state : {0, 3, -1, 255}) EXPECT_EQ(Device().Load(static_cast<ProgramState>(state)), "ok");
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(ResetSettingsTest, AWholeLoadEndsInThisOrder) {
  EXPECT_EQ(LoadOf("osrcm"), "ok");  // whatever order the blocks had
  const auto crc = [&](std::size_t offset, std::size_t length) {
    return " " + Hex8(Crc(ccfg, offset, length));
  };
  const Bytes scfg = Pattern(kScfgSize);
  EXPECT_EQ(
      Joined(Plot()),
      Joined({"SACI 12/0001 514 words",
              "SACI 17/0003" + crc(0, 0xC) + crc(0x10, 0x6EC) + crc(0x700, 0x7C) + crc(0x7D0, 0x2C),
              "SACI 26/0400 258 words", "SACI 27/0001 " + Hex8(Crc(scfg, 0, 0xE4)), "SACI 25/0100 514 words",
              "SEC_AP Disconnect true", "CS_DAP_0 Disconnect true", "CS_DAP_0 Connect false",
              "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000", "identify", "SACI 5/0000",
              "WriteMemory CS_DAP_0 @0x20000000 page 0 size 1 x3: 02 09 10",
              "ReadMemory CS_DAP_0 @0x20000000 page 0 size 1 x3", "Cortex Connect false",
              "SEC_AP Disconnect true"}));
}

TEST_F(ResetSettingsTest, TellsWhatTheEraseAndTheImageMakeDoubtful) {
  const std::string none = "Do not erase sectors (program load only)";
  const std::string all = "Chip Erase", keep = "Retain CCFG and SCFG sectors";
  using Ids = std::vector<std::uint8_t>;
  const struct {
    std::string erase;
    const char* regions;
    std::vector<std::string> messages;
    Ids programmed;
  } cases[] = {
      {all, "m", {kNoCcfg, kNoScfg}, {}},
      {all, "mc", {kNoScfg}, {12, 17}},
      {all, "ms", {kNoCcfg}, {26, 27}},
      {all, "mcso", {}, {12, 17, 26, 27, 25}},
      {none, "m", {}, {}},
      {none, "csom", {kCcfgNotErased, kScfgNotErased, kOtpNotErased}, {12, 17, 26, 27, 25}},
      {none, "r", {}, {}},
      {keep, "mcso", {kOtpNotErased}, {25}},
      {keep, "m", {}, {}},
  };
  for (const auto& c : cases) {
    host.properties["FlashEraseSetting"] = c.erase;
    EXPECT_EQ(LoadOf(c.regions), "ok");
    std::string messages;
    for (const std::string& message : c.messages) messages += (messages.empty() ? "" : "\n") + message;
    EXPECT_EQ(Messages(), messages) << c.erase << ", " << c.regions;
    EXPECT_EQ(Programmed(), c.programmed) << c.erase << ", " << c.regions;
  }
}

TEST_F(ResetSettingsTest, AChipWithoutScfgMissesNone) {
  host.properties["ScfgSize"] = "0";
  EXPECT_EQ(LoadOf("mc"), "ok");
  EXPECT_EQ(Messages(), "");
}

TEST_F(ResetSettingsTest, LaterCorvelsHaveNoOtpToProgram) {
  const struct {
    Part part;
    std::size_t otpCommands;
  } cases[] = {{Part::Serin, 1},
               {Part::CorvelHighPg1, 1},
               {Part::CorvelHighPg2, 0},
               {Part::CorvelHighNew, 0},
               {Part::CorvelMid, 0}};
  for (const auto& c : cases) {
    Be(c.part);
    EXPECT_EQ(LoadOf("mcso"), "ok");
    const std::vector<std::uint8_t> ids = host.CommandIds();
    EXPECT_EQ(static_cast<std::size_t>(std::count(ids.begin(), ids.end(), 25)), c.otpCommands)
        << Hex8(static_cast<std::uint32_t>(c.part));
    EXPECT_EQ(Messages(), "");
  }
}

TEST_F(ResetSettingsTest, ALockingCcfgEndsTheLoadBehindIt) {
  ccfg[kAuthorizationType] = 0;
  EXPECT_EQ(LoadOf("mcsor"), "ok");
  EXPECT_EQ(Plot().back(), "Info Debugging Interface is Locked!");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{12, 17, 26, 27, 25}));
  EXPECT_EQ(host.memory.size(), 0U);

  ccfg[kAuthorizationType] = 1;  // the next load knows nothing of it
  EXPECT_EQ(LoadOf("mcr"), "ok");
  EXPECT_EQ(host.memory.size(), 3U);
}

TEST_F(ResetSettingsTest, AClosedDebugPortGetsNoCortex) {
  host.bootStatus = 0x90;
  host.ahbApEnabled = false;
  EXPECT_EQ(LoadOf(""), "ok");
  EXPECT_EQ(
      Deeds(),
      "CS_DAP_0 reset request 0x5C\nCS_DAP_0 ReConnect\nSACI 1/0000\nSACI 5/0000\nSEC_AP Disconnect true");
}

TEST_F(ResetSettingsTest, AFailureSkipsTheStepsBehindIt) {
  const struct {
    std::uint8_t refused;
    const char* error;
    std::vector<std::uint8_t> sent;
  } cases[] = {
      {12, "Error when programming CCFG - Invalid size parameter", {12}},
      {17, "Error when verifying CCFG - Invalid size parameter", {12, 17}},
      {26, "Error when programming SCFG - Invalid size parameter", {12, 17, 26}},
      {27, "Error when verifying SCFG - Invalid size parameter", {12, 17, 26, 27}},
      {25, "Error when programming OTP - Invalid size parameter", {12, 17, 26, 27, 25}},
  };
  for (const auto& c : cases) {
    host.ReplyOnce(c.refused, {.result = 130});
    EXPECT_EQ(LoadOf("mcsor"), c.error);
    EXPECT_EQ(host.CommandIds(), c.sent);
    EXPECT_EQ(host.memory.size(), 0U);
  }
  EXPECT_EQ(LoadOf("mcsor"), "ok");  // the same object loads again
}

TEST_F(ResetSettingsTest, AStartForgetsTheLoadBefore) {
  EXPECT_EQ(LoadOf("mcsor"), "ok");
  host.memory.clear();
  EXPECT_EQ(LoadOf(""), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 5}));
  EXPECT_EQ(host.memory.size(), 0U);
  EXPECT_EQ(Messages(), "");
}

TEST_F(ResetSettingsTest, AVerificationEndsInOneLine) {
  host.properties["ImageVerificationSetting"] = "1";
  EXPECT_EQ(LoadOf("mcsor"), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{17, 27}));
  EXPECT_EQ(Deeds().substr(Deeds().rfind('\n') + 1), "Info Image Verification Succeeded!");
  EXPECT_EQ(host.memory.size(), 0U);

  EXPECT_EQ(LoadOf("cso"), "ok");  // no MAIN piece was verified
  EXPECT_EQ(Deeds(), "Info Main flash Verification Failed!");

  host.ReplyOnce(17, {.result = 0x87});
  EXPECT_EQ(LoadOf("mcs"), "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32");
  EXPECT_EQ(Messages(), "");
  host.ReplyOnce(27, {.result = 0x87});
  EXPECT_EQ(LoadOf("mcs"), "Error when verifying SCFG - Calculated CRC32 does not match expected CRC32");

  host.properties["ScfgSize"] = "0";
  EXPECT_EQ(Device().Initialize(), "ok");
  EXPECT_EQ(LoadOf("mc"), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{17}));
  EXPECT_EQ(Messages(), "Info Image Verification Succeeded!");
}

TEST_F(ResetSettingsTest, OnlyASuccessfulEndRereadsVerbose) {
  const struct {
    const char* verification;
    const char* regions;
    std::uint8_t refused;  // a command, or 0
    bool succeeds;
  } cases[] = {{"1", "mcs", 0, true}, {"1", "cs", 0, false}, {"0", "mcs", 0, true}, {"0", "mcs", 26, false}};
  for (const auto& c : cases) {
    host.properties["ImageVerificationSetting"] = c.verification;
    host.properties["FlashVerboseMode"] = "0";
    if (c.refused != 0) host.ReplyOnce(c.refused, {.result = 0x84});
    EXPECT_EQ(LoadOf(c.regions) == "ok", c.refused == 0);
    host.properties["FlashVerboseMode"] = "1";
    host.ForgetCalls();
    EXPECT_EQ(Device().Perform("Erase"), "ok");
    EXPECT_EQ(Messages(), c.succeeds ? "Info Performing Chip Erase" : "")
        << c.verification << ", " << c.regions << ", " << unsigned{c.refused};
  }
}

TEST_F(ResetSettingsTest, AStartForgetsRetainedSectors) {
  host.ReplyOnce(9, {.data = {0x00000001, 0}});
  for (const char* setting :
       {"Chip Erase (retain sectors specified in CCFG)", "Do not erase sectors (program load only)"}) {
    host.properties["FlashEraseSetting"] = setting;
    Device();
    host.ForgetCalls();
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Write(0, Pattern(2 * kSector)), "ok");
    EXPECT_EQ(Command(15).words.at(2), *setting == 'C' ? kSector : 0U) << setting;
  }
}

TEST_F(ResetSettingsTest, AFullEraseUndoesTheRetainingOneButNotTheOtherWayRound) {
  host.properties["FlashEraseSetting"] = "Retain CCFG and SCFG sectors";
  for (const bool fullEraseFirst : {true, false}) {
    host.connectedCores = {"CS_DAP_0"};
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(fullEraseFirst ? "ok" : Write(kCcfg, ccfg), "ok");
    EXPECT_EQ(Device().Perform("Erase"), "ok");
    host.connectedCores.insert("CS_DAP_0");
    EXPECT_EQ(fullEraseFirst ? Write(0, Pattern(kSector)) : "ok", "ok");
    host.ForgetCalls();
    EXPECT_EQ(End(), "ok");
    EXPECT_EQ(Messages(), fullEraseFirst ? std::string(kNoCcfg) + "\n" + kNoScfg : kNoScfg);
    EXPECT_EQ(Programmed(), fullEraseFirst ? Bytes{} : (Bytes{12, 17}));
  }
}

TEST_F(ResetSettingsTest, AnEraseThatFailedIsNone) {
  const struct {
    const char* setting;
    std::uint8_t command;
  } cases[] = {{"Chip Erase", 9}, {"Retain CCFG and SCFG sectors", 28}};
  for (const auto& c : cases) {
    host.properties["FlashEraseSetting"] = c.setting;
    EXPECT_EQ(Start(), "ok");
    host.ReplyOnce(c.command, {.result = 0x84});
    EXPECT_EQ(Write(kCcfg, ccfg), "Error occurred when erasing the chip - Flash hardware FSM error");
    host.properties["FlashEraseSetting"] = "Do not erase sectors (program load only)";
    EXPECT_EQ(Write(kCcfg, ccfg), "ok");
    host.ForgetCalls();
    EXPECT_EQ(End(), "ok");
    EXPECT_EQ(Messages(), kCcfgNotErased) << c.setting;
    EXPECT_EQ(Command(12).Id(), 12) << c.setting;
  }
}

}  // namespace
