// The first flash block of a load starts it (reset, erase, allowed sectors); every MAIN piece is programmed
// and verified in its own call.

#include "DeviceTest.h"

namespace {

using MainFlashTest = DeviceTest;

TEST_F(MainFlashTest, TheFirstBlockResetsErasesAndProgramsInThisOrder) {
  const std::string crc = Hex8(ReferenceCrc32(Pattern(kSector)));
  Play("cores=; start . 1000+800");
  EXPECT_EQ(
      Joined(host.events),
      Joined({"CS_DAP_0 Connect false", "identify",  // for every block
              "CS_DAP_0 Disconnect true", "ResetTarget 0", "CS_DAP_0 Connect false", "SACI 1/0000",
              "identify",                          // the start itself
              "identify", "SACI 9/0000 5C17E94B",  // the erase setting
              "SACI 15/0000 5C17E94B 00001000", "stream 512", "SACI 16/0000 00001000 00000800 " + crc}));
  Play(". 1800+800");
  EXPECT_EQ(Joined(host.events), Joined({"identify", "SACI 15/0000 5C17E94B 00001800", "stream 512",
                                         "SACI 16/0000 00001800 00000800 " + crc}));
  EXPECT_EQ(Play("start . 1800+800"), "1 9 15@1800+800 16");  // the next load starts anew
  EXPECT_EQ(CallCount("GetProperty FlashVerboseMode"), 1U);
}

TEST_F(MainFlashTest, APieceBecomesWholeSectors) {
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

TEST(MainFlash, RetainedAndListedSectorsAreNotProgrammed) {
  const std::string retain = "FlashEraseSetting=Chip Erase (retain sectors specified in CCFG); 9<5,0; ";
  const std::vector<Row> plays = {
      {"FlashVerboseMode=1; FlashPageToggle=1; " + retain + "start . 400+2C00",
       "1 | I Performing Chip Erase | 9/1 | I Chip Erase: Retained the following sector(s): 0, 2,  | "
       "I Skipping programming the following sector(s): 0, 2, 4-5,  | 15@800+800 16 15@1800+800 16"},
      {"FlashPageToggle=1; " + retain + "start . 400+2C00", "1 9/1 15@800+800 16 15@1800+800 16"},
      {"FlashVerboseMode=1; start . 0+4", "1 | I Performing Chip Erase | 9 15@0+800 16"},
      // An erase forgets what the one before retained.
      {"ReadDeviceInfo; cores=CS_DAP_0; start; 9<1,0; ChipEraseRetain; cores=CS_DAP_0; . 0+1000",
       "1 9 15@0+1000 16"},
      {kNoErase + "ReadDeviceInfo; cores=CS_DAP_0; start; 9<1,0; ChipEraseRetain; cores=CS_DAP_0; . 0+1000",
       "1 15@800+800 16"},
  };
  ExpectPlays("FlashPages=4-5; ", plays);
}

TEST(MainFlash, FailuresNameWhatWasRefused) {
  const std::string unsized = "I The FLASH size of the target could not be determined.";
  const std::string differs = "! Error when verifying flash - Calculated CRC32 does not match expected CRC32";
  const std::vector<Row> plays = {
      {"9!83; m", "1 9 | ! Error occurred when erasing the chip - Invalid key parameter"},
      {"16!87; m", "1 9 15@0+800 16 | " + differs},
      {"16!01; m", "1 9 15@0+800 16 | ! Error when verifying flash - Unknown result code received from SACI"},
      {"15!84; m", "1 9 15@0+800 | ! Received response from SACI with unsuccesfull result"},
      {"ImageVerificationSetting=1; -FlashEraseSetting; m; 16!87; 800+800", "1 16 16 | " + differs},
      {"DeviceInfoFlashSizeTranslation=; m",  // no sector is known, so none is allowed
       unsized + " | 1 | " + unsized + " | " + unsized + " | 9"},
  };
  ExpectPlays("start; ", plays);
}

TEST_F(MainFlashTest, AnUnknownSectorSizeStopsTheLoadNotTheProcess) {
  EXPECT_NE(Play("SectorSize=0; init start . 0+5").find("! "), std::string::npos);
  EXPECT_EQ(host.CommandIds(), Bytes{});
}

}  // namespace
