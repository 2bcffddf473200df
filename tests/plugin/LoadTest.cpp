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

TEST_F(LoadTest, AWholeLoadEndsInThisOrder) {
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

TEST_F(LoadTest, APieceBecomesWholeSectors) {
  const struct {
    std::uint32_t address;
    std::size_t length;
    std::uint32_t base;
    std::size_t programmed;
  } rows[] = {{0x0C03, 1, 0x0800, 0x800},      {0x0800, 0x800, 0x0800, 0x800},
              {0x0800, 0x801, 0x0800, 0x1000}, {0x0801, 0x7FF, 0x0800, 0x800},
              {0x0FFF, 2, 0x0800, 0x1000},     {0x1000, 0x1800, 0x1000, 0x1800},
              {0x7FFFF, 1, 0x7F800, 0x800}};
  Play("start");
  for (const auto& row : rows) {
    const Bytes data = Pattern(row.length, 9);
    EXPECT_EQ(Device().Write(row.address, data), "ok");
    Bytes expected(row.programmed, 0xFF);
    std::copy(data.begin(), data.end(), expected.begin() + (row.address - row.base));
    Bytes streamed;
    for (const Words& chunk : Command(15).streamed) {
      const Bytes bytes = BytesOf(chunk);
      EXPECT_EQ(bytes.size(), kSector);
      streamed.insert(streamed.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(Command(15).words.at(2), row.base);
    EXPECT_EQ(streamed, expected) << Hex8(row.address) << "+" << row.length;
    const Words& check = Command(16).words;
    EXPECT_EQ(Words(check.begin() + 1, check.end()),
              (Words{row.base, static_cast<std::uint32_t>(row.programmed), ReferenceCrc32(expected)}));
  }
}

TEST(MainFlash, TheEraseSettingChoosesTheErase) {
  const std::string load = "; start . 0+4", programmed = "15@0+800 16";
  const std::string unknown =
      "1 | E Unknown erase option. Using \"Do not erase sectors (program load only)\" | " + programmed;
  std::vector<Row> rows = {
      {kNoErase + load, "1 " + programmed},
      {"FlashEraseSetting=Chip Erase" + load, "1 9 " + programmed},
      {"FlashEraseSetting=Chip Erase (retain sectors specified in CCFG)" + load, "1 9/1 " + programmed},
      {"FlashEraseSetting=Retain MAIN sectors and CCFG and SCFG" + load, "1 28/1 " + programmed},
      {"FlashEraseSetting=Retain CCFG and SCFG sectors" + load, "1 28 " + programmed},
      {"FlashEraseSetting=Chip erase" + load, unknown},
      {"FlashEraseSetting=Chip Erase " + load, unknown},
      {"FlashEraseSetting=" + load, unknown},
      {"-FlashEraseSetting" + load, "1 | ! Unknown property \"FlashEraseSetting\""},
      // A start that failed is tried again.
      {"-FlashEraseSetting; start 0+4; FlashEraseSetting=Chip Erase; . 0+4", "1 9 " + programmed},
  };
  // On Corvel parts three other settings make it, each on, off or absent.
  for (const std::string part : {"HighPg1", "HighPg2", "HighNew", "Mid"}) {
    for (unsigned settings = 0; settings < 8; ++settings) {
      const auto set = [&](const char* name, unsigned bit) {
        const bool on = (settings & bit) != 0;
        return on || settings % 3 == 0 ? std::string(name) + (on ? "=1; " : "=0; ") : "";
      };
      const bool retainMain = (settings & 2) != 0;
      std::string erase = (settings & 4) != 0 && part != "HighPg1" ? "28" : "9";
      erase = (settings & 1) != 0 ? "1 " : "1 " + erase + (retainMain ? "/1 " : " ");
      rows.push_back({"part=" + part + "; -FlashEraseSetting; " + set("NoFlashErase", 1) +
                          set("RetainMainSectors", 2) + set("RetainCcfgScfg", 4) + load,
                      erase + programmed});
    }
  }
  ExpectPlays("9<*0,0; 28<*0,0; ", rows);
}

// As a whole the block lies in no region, so it starts nothing; the filter leaves a piece that lies in one. A
// CCFG piece taken now would end in a CCFG of zeros, which locks the chip.
TEST_F(LoadTest, APieceThatReachesFlashUnannouncedIsRefused) {
  for (const bool intoCcfg : {true, false}) {
    Play("FlashPagesFilledWith=1; start");
    Bytes block = Pattern(2 * kSector);
    std::fill_n(block.begin() + (intoCcfg ? 0 : kSector), kSector, std::uint8_t{0xFF});
    EXPECT_EQ(Device().Write((intoCcfg ? kCcfg : 0x80000) - kSector, block),
              "Image data of a block that lies only partly in flash cannot be programmed");
    EXPECT_EQ(Play(". end"), "1 5");
  }
}

TEST_F(LoadTest, CcfgFollowedByOtpIsSplit) {
  const Bytes block = Pattern(kCcfgSize + kOtpSize);
  Play("CcfgSkipProgrammingUserRecord=0; start 4E020000+900 end");
  EXPECT_EQ(Payload(12), Bytes(block.begin(), block.begin() + kCcfgSize));
  Bytes otp(block.begin() + kCcfgSize, block.end());
  otp.resize(2048);
  EXPECT_EQ(Payload(25), otp);

  // The second half takes the address behind the first for granted: elsewhere the OTP gets what lies in it.
  Play("OtpBase=0x4E020780; init start 4E020000+900 end");
  otp.assign(0x80, 0);
  otp.insert(otp.end(), block.begin() + kCcfgSize, block.begin() + kCcfgSize + 0x80);
  otp.resize(2048);
  EXPECT_EQ(Payload(25), otp);
}

// Nonsense lengths must not reach past the block that the host handed over.
TEST_F(LoadTest, NegativeLengthsAreSurvived) {
  const Bytes block = Pattern(4);
  for (const std::uint32_t address : {0U, 0x800U, kCcfg, kUserRecord, kScfg, kOtp, kRam, 0xFFFFFFFCU}) {
    Play("start");
    for (const int length : {-1, -4, -0x800, INT32_MIN}) {
      EXPECT_STRNE(Device()->WriteDataToFlash(block.data(), Debugger::Address(address), length, 0), nullptr);
      EXPECT_EQ(host.CommandIds(), Bytes{});
    }
  }
}

}  // namespace
