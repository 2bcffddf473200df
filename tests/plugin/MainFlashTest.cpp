// The first flash block of a load starts it (reset, erase, allowed sectors); every MAIN piece is programmed
// and verified in its own call.

#include "DeviceTest.h"
#include "ExposedDevice.h"

namespace {

struct MainFlashTest : DeviceTest {
  // All that one pipelined command streamed.
  static Bytes Streamed(const SaciCommand& command) {
    Bytes bytes;
    for (const Words& chunk : command.streamed) {
      const Bytes part = BytesOf(chunk);
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
    return bytes;
  }
};

TEST_F(MainFlashTest, TheFirstBlockResetsErasesAndProgramsInThisOrder) {
  host.connectedCores = {};
  const Bytes data = Pattern(kSector);
  EXPECT_EQ(WriteFirst(0x1000, data), "ok");
  EXPECT_EQ(Joined(Plot()),
            Joined({"CS_DAP_0 Connect false", "identify",  // for every block
                    "CS_DAP_0 Disconnect true", "ResetTarget 0", "CS_DAP_0 Connect false", "SACI 1/0000",
                    "identify",                          // the start itself
                    "identify", "SACI 9/0000 5C17E94B",  // the erase setting
                    "SACI 15/0000 5C17E94B 00001000", "stream 512",
                    "SACI 16/0000 00001000 00000800 " + Hex8(ReferenceCrc32(data))}));

  host.ForgetCalls();
  EXPECT_EQ(Write(0x1800, data), "ok");
  EXPECT_EQ(Joined(Plot()), Joined({"identify", "SACI 15/0000 5C17E94B 00001800", "stream 512",
                                    "SACI 16/0000 00001800 00000800 " + Hex8(ReferenceCrc32(data))}));

  EXPECT_EQ(WriteFirst(0x1800, data), "ok");  // the next load starts anew
  EXPECT_EQ(CallCount("ResetTarget 0"), 1U);
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 9, 15, 16}));
}

TEST_F(MainFlashTest, APieceBecomesWholeSectors) {
  const struct {
    std::uint32_t address;
    std::size_t length;
    std::uint32_t base;
    std::size_t programmed;
  } cases[] = {
      {0x0C03, 1, 0x0800, 0x800},     {0x0800, 0x800, 0x0800, 0x800}, {0x0800, 0x801, 0x0800, 0x1000},
      {0x0801, 0x7FF, 0x0800, 0x800}, {0x0FFF, 2, 0x0800, 0x1000},    {0x1000, 0x1800, 0x1000, 0x1800},
      {0x7FFFF, 1, 0x7F800, 0x800},
  };
  for (const auto& c : cases) {
    const Bytes data = Pattern(c.length, 9);
    EXPECT_EQ(WriteFirst(c.address, data), "ok");
    Bytes expected(c.programmed, 0xFF);
    std::copy(data.begin(), data.end(), expected.begin() + (c.address - c.base));
    const SaciCommand sent = Command(15);
    EXPECT_EQ(sent.words.at(2), c.base);
    EXPECT_EQ(sent.streamed.size(), c.programmed / kSector);
    EXPECT_EQ(Streamed(sent), expected) << Hex8(c.address) << "+" << c.length;
    const SaciCommand check = Command(16);
    EXPECT_EQ(BytesOf(std::span(check.words).subspan(1)),
              BytesOf(Words{c.base, static_cast<std::uint32_t>(c.programmed), ReferenceCrc32(expected)}));
  }
}

TEST_F(MainFlashTest, TheEraseSettingChoosesTheErase) {
  using Ids = std::vector<std::uint8_t>;
  const struct {
    const char* setting;
    Ids commands;
    std::uint16_t retainMain;
  } cases[] = {
      {"Do not erase sectors (program load only)", {1, 15, 16}, 0},
      {"Chip Erase", {1, 9, 15, 16}, 0},
      {"Chip Erase (retain sectors specified in CCFG)", {1, 9, 15, 16}, 1},
      {"Retain MAIN sectors and CCFG and SCFG", {1, 28, 15, 16}, 1},
      {"Retain CCFG and SCFG sectors", {1, 28, 15, 16}, 0},
  };
  host.ReplyAlways(9, {.data = {0, 0}});
  host.ReplyAlways(28, {.data = {0, 0}});
  for (const auto& c : cases) {
    host.properties["FlashEraseSetting"] = c.setting;
    EXPECT_EQ(WriteFirst(0, Pattern(4)), "ok");
    EXPECT_EQ(host.CommandIds(), c.commands) << c.setting;
    if (c.commands.size() == 4) {
      EXPECT_EQ(Command(c.commands[1]).Specific(), c.retainMain) << c.setting;
    }
    EXPECT_EQ(Messages(), "");
  }
}

TEST_F(MainFlashTest, AnUnknownEraseSettingIsToldAndErasesNothing) {
  for (const char* setting : {"Chip erase", "Chip Erase ", "", "1"}) {
    host.properties["FlashEraseSetting"] = setting;
    EXPECT_EQ(WriteFirst(0, Pattern(4)), "ok");
    EXPECT_EQ(Messages(), "Error Unknown erase option. Using \"Do not erase sectors (program load only)\"");
    EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 15, 16}));
  }
}

TEST(EraseType, IsMadeFromThreeSettingsOnCorvelParts) {
  FakeHost host;
  ExposedDevice device(host);
  device.Initialize();
  host.properties["DeviceInfoRevisionTranslation"] =
      "0x1BB98:1.9:A:0x2BB98:2.0:B:0x1BBC5:1.0:A:0x1BBCC:1.0:A";
  host.properties.erase("FlashEraseSetting");
  const struct {
    std::uint32_t deviceId;
    bool keepsConfiguration;
  } parts[] = {{0x1BB98000, false}, {0x2BB98000, true}, {0x1BBC5000, true}, {0x1BBCC000, true}};
  for (const auto& part : parts) {
    host.registers["CFGAP_DEVICEID"] = part.deviceId;
    for (unsigned settings = 0; settings < 8; ++settings) {
      const bool noErase = (settings & 1) != 0;
      const bool retainMain = (settings & 2) != 0;
      const bool retainConfiguration = (settings & 4) != 0;
      // A setting that is off is now absent, now 0.
      const auto set = [&](const char* name, bool on) {
        host.properties.erase(name);
        if (on || settings % 3 == 0) host.properties[name] = on ? "1" : "0";
      };
      set("NoFlashErase", noErase);
      set("RetainMainSectors", retainMain);
      set("RetainCcfgScfg", retainConfiguration);
      int expected = retainMain ? 2 : 1;
      if (retainConfiguration && part.keepsConfiguration) expected = retainMain ? 3 : 4;
      if (noErase) expected = 0;
      EXPECT_EQ(static_cast<int>(device.GetEraseType()), expected)
          << std::hex << part.deviceId << " " << settings;
    }
  }
}

TEST_F(MainFlashTest, AFailedStartIsTriedAgain) {
  host.properties.erase("FlashEraseSetting");
  EXPECT_EQ(WriteFirst(0, Pattern(4)), "Unknown property \"FlashEraseSetting\"");
  host.properties["FlashEraseSetting"] = "Chip Erase";
  host.ForgetCalls();
  EXPECT_EQ(Write(0, Pattern(4)), "ok");
  EXPECT_EQ(CallCount("ResetTarget 0"), 1U);
}

TEST_F(MainFlashTest, RetainedSectorsAreNotProgrammed) {
  host.properties["FlashEraseSetting"] = "Chip Erase (retain sectors specified in CCFG)";
  host.ReplyAlways(9, {.data = {0x00000005, 0}});
  host.properties["FlashVerboseMode"] = "1";
  host.properties["FlashPageToggle"] = "1";
  host.properties["FlashPages"] = "4-5";
  EXPECT_EQ(WriteFirst(0x400, Pattern(0x2C00)), "ok");
  EXPECT_EQ(Command(15).words.at(2), 0x1800U);  // the last of two
  EXPECT_EQ(Command(15).streamed.size(), 1U);
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 9, 15, 16, 15, 16}));
  EXPECT_EQ(Messages(),
            "Info Performing Chip Erase\n"
            "Info Chip Erase: Retained the following sector(s): 0, 2, \n"
            "Info Skipping programming the following sector(s): 0, 2, 4-5, ");
}

TEST_F(MainFlashTest, AnEraseForgetsWhatTheOneBeforeRetained) {
  for (const char* setting : {"Do not erase sectors (program load only)", "Chip Erase"}) {
    host.properties["FlashEraseSetting"] = setting;
    host.ReplyOnce(9, {.data = {0x00000001, 0}});
    host.connectedCores.insert("CS_DAP_0");
    EXPECT_EQ(Device().Perform("ReadDeviceInfo"), "ok");
    host.connectedCores.insert("CS_DAP_0");
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Device().Perform("ChipEraseRetain"), "ok");
    host.connectedCores.insert("CS_DAP_0");
    host.ForgetCalls();
    EXPECT_EQ(Write(0, Pattern(2 * kSector)), "ok");
    EXPECT_EQ(Command(15).words.at(2), *setting == 'D' ? 0x800U : 0U) << setting;
  }
}

TEST_F(MainFlashTest, SkippedSectorsAreToldOnlyIfVerboseAndAny) {
  host.properties["FlashPageToggle"] = "1";
  host.properties["FlashPages"] = "9";
  EXPECT_EQ(WriteFirst(0, Pattern(4)), "ok");
  EXPECT_EQ(Messages(), "");
  host.properties["FlashPageToggle"] = "0";
  host.properties["FlashVerboseMode"] = "1";
  EXPECT_EQ(WriteFirst(0, Pattern(4)), "ok");
  EXPECT_EQ(Messages(), "Info Performing Chip Erase");
}

TEST_F(MainFlashTest, VerboseIsReadOncePerLoad) {
  EXPECT_EQ(WriteFirst(0, Pattern(4)), "ok");
  EXPECT_EQ(Write(0x800, Pattern(4)), "ok");
  EXPECT_EQ(CallCount("GetProperty FlashVerboseMode"), 1U);
}

TEST_F(MainFlashTest, FailuresNameWhatWasRefused) {
  const struct {
    std::uint8_t command, result;
    const char* error;
    std::vector<std::uint8_t> sent;
  } cases[] = {
      {9, 0x83, "Error occurred when erasing the chip - Invalid key parameter", {1, 9}},
      {16,
       0x87,
       "Error when verifying flash - Calculated CRC32 does not match expected CRC32",
       {1, 9, 15, 16}},
      {16, 0x01, "Error when verifying flash - Unknown result code received from SACI", {1, 9, 15, 16}},
      {15, 0x84, "Received response from SACI with unsuccesfull result", {1, 9, 15}},
  };
  for (const auto& c : cases) {
    host.ReplyOnce(c.command, {.result = c.result});
    EXPECT_EQ(WriteFirst(0, Pattern(4)), c.error);
    EXPECT_EQ(host.CommandIds(), c.sent) << unsigned{c.command};
  }
}

TEST_F(MainFlashTest, VerificationOnlyProgramsNothing) {
  host.properties["ImageVerificationSetting"] = "1";
  const Bytes data = Pattern(kSector);
  EXPECT_EQ(WriteFirst(0, data), "ok");
  EXPECT_EQ(Saci(), "SACI 1/0000, SACI 16/0000 00000000 00000800 " + Hex8(ReferenceCrc32(data)));
  EXPECT_EQ(CallCount("GetProperty FlashEraseSetting"), 0U);
  host.ReplyOnce(16, {.result = 0x87});
  EXPECT_EQ(Write(0x800, data),
            "Error when verifying flash - Calculated CRC32 does not match expected CRC32");
}

TEST_F(MainFlashTest, AnUnknownSectorSizeStopsTheLoadNotTheProcess) {
  host.properties["SectorSize"] = "0";
  const PluginDevice sectorless(host);
  const bool refused = sectorless.Initialize() != "ok" || sectorless.Load(ProgramState::LoadStart) != "ok" ||
                       sectorless.Write(0, Pattern(5)) != "ok";
  EXPECT_TRUE(refused);
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{}));
}

TEST_F(MainFlashTest, WithoutAKnownFlashSizeNoSectorIsAllowed) {
  host.properties["DeviceInfoFlashSizeTranslation"] = "";
  EXPECT_EQ(WriteFirst(0, Pattern(kSector)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 9}));
}

}  // namespace
