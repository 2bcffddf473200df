// The start and the end of a load: what is cleared, what is programmed in which order, what the user is told.

#include "DeviceTest.h"

namespace {

const std::string kNoCcfg =
    "E Image must contain (correctly sized) CCFG section, when erase type is \"Chip erase\"";
const std::string kNoScfg =
    "E Image must contain (correctly sized) SCFG section, when erase type is \"Chip erase\"";
const std::string kCcfgNotErased = "I The CCFG sector has not been erased. Writing to CCFG could fail.";
const std::string kScfgNotErased = "I The SCFG sector has not been erased. Writing to SCFG could fail.";
const std::string kOtpNotErased = "I Chip has not been erased. Writing to OTP could fail.";
const std::string kLocked = "I Debugging Interface is Locked!";
const std::string kKeepConfiguration = "FlashEraseSetting=Retain CCFG and SCFG sectors; ";
const std::string kLockingByte = "4E0207D0:00";  // of an open CCFG

TEST(LoadBracket, TellsWhatTheEraseAndTheImageMakeDoubtful) {
  const std::vector<Row> plays = {
      {"start m . end", kNoCcfg + " | " + kNoScfg + " | 1 5"},
      {"start m c . end", "12/1 17/3 | " + kNoScfg + " | 1 5"},
      {"start m s . end", kNoCcfg + " | 26/400 27/1 1 5"},
      {"start m c s o . end", "12/1 17/3 26/400 27/1 25/100 1 5"},
      {"ScfgSize=0; start m c . end", "12/1 17/3 1 5"},
      {kNoErase + "start m . end", "1 5"},
      {kNoErase + "start r . end", "1 5"},
      {kNoErase + "start c s o m . end", kCcfgNotErased + " | 12/1 17/3 | " + kScfgNotErased +
                                             " | 26/400 27/1 | " + kOtpNotErased + " | 25/100 1 5"},
      {kKeepConfiguration + "start m c s o . end", kOtpNotErased + " | 25/100 1 5"},
      {kKeepConfiguration + "start m . end", "1 5"},
      // The full erase undoes the retaining one, but not the other way round.
      {kKeepConfiguration + "start Erase; cores=CS_DAP_0; m . end", kNoCcfg + " | " + kNoScfg + " | 1 5"},
      {kKeepConfiguration + "start c Erase; cores=CS_DAP_0; . end", "12/1 17/3 | " + kNoScfg + " | 1 5"},
      // An erase that failed is none.
      {"9!84; start c; " + kNoErase + ". c end", "1 | " + kCcfgNotErased + " | 12/1 17/3 1 5"},
      {kKeepConfiguration + "28!84; start c; " + kNoErase + ". c end",  // asked for again
       "1 | " + kCcfgNotErased + " | 12/1 17/3 1 5"},
  };
  ExpectPlays("", plays);
}

TEST(LoadBracket, LaterCorvelsHaveNoOtpToProgram) {
  const std::string load = "; start m c s o . end", sectors = "12/1 17/3 26/400 27/1";
  const std::vector<Row> plays = {
      {"part=HighPg1" + load, sectors + " 25/100 1 5"},
      {"part=HighPg2" + load, sectors + " 1"},
      {"part=HighNew" + load, sectors + " 1"},
      {"part=Mid" + load, sectors + " 1 7"},
  };
  ExpectPlays("", plays);
}

TEST(LoadBracket, AFailureSkipsTheStepsBehindIt) {
  const std::string is = " - Invalid size parameter";
  const std::vector<Row> plays = {
      {"12!82; end", "12/1 | ! Error when programming CCFG" + is},
      {"17!82; end", "12/1 17/3 | ! Error when verifying CCFG" + is},
      {"26!82; end", "12/1 17/3 26/400 | ! Error when programming SCFG" + is},
      {"27!82; end", "12/1 17/3 26/400 27/1 | ! Error when verifying SCFG" + is},
      {"25!82; end", "12/1 17/3 26/400 27/1 25/100 | ! Error when programming OTP" + is},
  };
  ExpectPlays("start m c s o r . ", plays);
}

TEST(LoadBracket, AStartForgetsTheLoadBefore) {
  const std::vector<Row> plays = {
      {"start m c s o r end . start end", "1 5"},
      {"start m c " + kLockingByte + " . end start c . end", "12/1 17/3 | " + kNoScfg + " | 1 5"},
      {"FlashEraseSetting=Chip Erase (retain sectors specified in CCFG); 9<1,0; start 0+1000 .; " + kNoErase +
           "start 0+1000",
       "1 15@0+1000 16"},
  };
  ExpectPlays("", plays);
}

TEST(LoadBracket, ALockingCcfgEndsTheLoadBehindIt) {
  const std::vector<Row> plays = {
      {"start m c s o r " + kLockingByte + " . end", "12/1 17/3 26/400 27/1 25/100 | " + kLocked},
      {"start m c s 4E0207D0:01 . end", "12/1 17/3 26/400 27/1 1 5"},
  };
  ExpectPlays("", plays);
}

TEST(LoadBracket, AVerificationEndsInOneLine) {
  const std::string good = "I Image Verification Succeeded!";
  const std::string differs = " - Calculated CRC32 does not match expected CRC32";
  const std::vector<Row> plays = {
      {"start m c s o r . end", "17/3 27/1 | " + good},
      {"start c s o . end", "I Main flash Verification Failed!"},
      {"17!87; start m c s . end", "17/3 | ! Error when verifying CCFG" + differs},
      {"27!87; start m c s . end", "17/3 27/1 | ! Error when verifying SCFG" + differs},
      {"ScfgSize=0; start m c . end", "17/3 | " + good},
  };
  ExpectPlays("ImageVerificationSetting=1; ", plays);
}

TEST(LoadBracket, OnlyASuccessfulEndRereadsVerbose) {
  const std::string told = "1 | I Performing Chip Erase | 9 20/1", silent = "1 9 20/1";
  const std::string then = " end; FlashVerboseMode=1; . Erase";
  const std::vector<Row> plays = {
      {"start m c s" + then, told},
      {"26!84; start m c s" + then, silent},
      {"ImageVerificationSetting=1; start m c s" + then, told},
      {"ImageVerificationSetting=1; start c s" + then, silent},
  };
  ExpectPlays("", plays);
}

TEST_F(DeviceTest, AnEmptyLoadOnlyReattaches) {
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

TEST_F(DeviceTest, AClosedDebugPortGetsNoCortex) {
  Play("status=90; closed; start . end");
  EXPECT_EQ(Deeds(), Joined({"CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
                             "SACI 5/0000", "SEC_AP Disconnect true"}));
}

TEST_F(DeviceTest, AWholeLoadEndsInThisOrder) {
  Play("start o s r c m . end");  // whatever order the blocks had
  const auto crc = [](std::size_t offset, std::size_t length) {
    return " " + Hex8(Crc(OpenCcfg(), offset, length));
  };
  EXPECT_EQ(
      Joined(host.events),
      Joined({"SACI 12/0001 514 words",
              "SACI 17/0003" + crc(0, 0xC) + crc(0x10, 0x6EC) + crc(0x700, 0x7C) + crc(0x7D0, 0x2C),
              "SACI 26/0400 258 words", "SACI 27/0001 " + Hex8(Crc(Pattern(kScfgSize), 0, 0xE4)),
              "SACI 25/0100 514 words", "SEC_AP Disconnect true", "CS_DAP_0 Disconnect true",
              "CS_DAP_0 Connect false", "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
              "identify", "SACI 5/0000", "WriteMemory CS_DAP_0 @0x20000000 page 0 size 1 x3: 02 09 10",
              "ReadMemory CS_DAP_0 @0x20000000 page 0 size 1 x3", "Cortex Connect false",
              "SEC_AP Disconnect true"}));
}

}  // namespace
