// Chip erase with its retained sectors, and the blank check.

#include "DeviceTest.h"

namespace {

struct ChipEraseTest : DeviceTest {
  ChipEraseTest() { host.properties["FlashVerboseMode"] = "1"; }

  // Asks for an erase that retains MAIN sectors, answered with `field`, on a chip that is identified already.
  std::string EraseRetaining(const Words& field) {
    EXPECT_EQ(Device().Perform("ReadDeviceInfo"), "ok");
    host.ForgetCalls();
    host.ReplyOnce(9, {.data = field});
    return Device().Perform("ChipEraseRetain");
  }
};

TEST_F(ChipEraseTest, TheRetainFieldNamesSectors) {
  const struct {
    Part part;
    const char* flashSize;
    Words field;
    const char* retained;
  } cases[] = {
      {Part::Serin, "0x20000", {0x00000003, 0x00000001}, "0-1, 32-39, "},
      {Part::CorvelHighPg1, "0x20000", {0x00000003, 0x00000001}, "0-1, "},
      {Part::CorvelHighNew, "0x20000", {0x00000003, 0x0000000F}, "0-1, "},
      {Part::CorvelMid, "0x20000", {0x00000000, 0x00000010}, "32-39, "},
      {Part::CorvelHighPg2, "0x80000", {0x80000000, 0x80000000}, "31, 248-255, "},
      {Part::Serin, "0x80000", {0x80000001, 0x08000000}, "0, 31, 248-255, "},
      {Part::Serin, "0x100000", {0x00000000, 0xF0000000}, nullptr},
      {Part::Serin, "0x80000", {0xFFFFFFFF, 0x0FFFFFFF}, "0-255, "},
      {Part::Serin, "0x110000", {0x00000001, 0x00000000, 0x80000001}, "0, 256-263, 504-511, "},
      {Part::Serin, "0x100000", {0x00000001, 0x00000002, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, "0, 40-47, "},
      {Part::Serin, "0x80000", {0x00000002, 0x00000000, 0xFFFFFFFF}, "1, "},  // sectors that do not exist
      {Part::Serin, "0x11800", {0x00000000, 0x00000001}, "32-34, "},          // half a group exists
      {Part::Serin, "0x80000", {0x00000000, 0x00000000}, nullptr},
  };
  for (const auto& c : cases) {
    Be(c.part);
    host.properties["DeviceInfoFlashSizeTranslation"] = "*:*:*:" + std::string(c.flashSize);
    EXPECT_EQ(EraseRetaining(c.field), "ok");
    EXPECT_EQ(Messages(),
              c.retained == nullptr
                  ? "Info Performing Chip Erase\nInfo Chip Erase: No sectors retained"
                  : "Info Performing Chip Erase\nInfo Chip Erase: Retained the following sector(s): " +
                        std::string(c.retained))
        << Hex8(c.field[0]) << " " << Hex8(c.field[1]) << " on " << c.flashSize;
  }
}

TEST_F(ChipEraseTest, AnEmptyFieldIsToldWhetherVerboseOrNot) {
  for (const char* verbose : {"0", "1"}) {
    host.properties["FlashVerboseMode"] = verbose;
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(EraseRetaining({1, 0}), "ok");  // forgotten by the next erase
    EXPECT_EQ(EraseRetaining({}), "ok");
    const std::string told =
        "Info No sectors were retained during Chip Erase - only allowed if CCFG is valid";
    EXPECT_EQ(Messages(), *verbose == '0' ? told
                                          : "Info Performing Chip Erase\n" + told +
                                                "\nInfo Chip Erase: No sectors retained");
  }
}

TEST_F(ChipEraseTest, AFieldOfAnotherSizeIsRefused) {
  for (const std::size_t count : {1U, 4U, 6U, 32U}) {
    EXPECT_EQ(
        EraseRetaining(Words(count, 1)),
        "Unexpected size of 'ccfg.flashProt.chipEraseRetain' returned from device. Expected 2 or 3 32-bit "
        "words (32-bit), but received " +
            std::to_string(count) + " 32-bit words.");
    EXPECT_EQ(Plot().back(), "SACI 9/0001 5C17E94B");
  }
}

// The first operation on a new device: how many sectors there are is not known until the answer is read.
TEST_F(ChipEraseTest, MaySafelyComeBeforeIdentification) {
  host.ReplyOnce(9, {.data = {0xFFFFFFFF, 0xFFFFFFFF}});
  EXPECT_EQ(Device().Perform("ChipEraseRetain"), "ok");
  EXPECT_EQ(Messages(),
            "Info Performing Chip Erase\nInfo Chip Erase: Retained the following sector(s): 0-255, ");
}

TEST_F(ChipEraseTest, PlainEraseLooksAtNoAnswer) {
  host.ReplyOnce(9, {.data = {1, 2, 3, 4}});
  EXPECT_EQ(Device().Perform("Erase"), "ok");
  EXPECT_EQ(Messages(), "Info Performing Chip Erase");
}

TEST_F(ChipEraseTest, BlankCheckTellsWhatIsProgrammed) {
  const std::string ccfg = "Info Blank Check: Device CCFG sector is programmed";
  const std::string main = "Info Blank Check: Device MAIN flash is programmed";
  const struct {
    std::uint8_t ccfgResult, mainResult;
    std::string outcome, messages;
  } cases[] = {
      {0, 0, "ok", "Info Blank Check: Device flash is blank"},
      {137, 0, "ok", ccfg},
      {0, 137, "ok", main},
      {137, 137, "ok", ccfg + "\n" + main},
      {134, 137, "Error performing blank check on CCFG sector- Command is not allowed due to restrictions",
       ""},
      {137, 255, "Error performing blank check on MAIN flash bank - Unspecified command failure", ccfg},
  };
  for (const auto& c : cases) {
    Device();
    host.ForgetCalls();
    host.ReplyOnce(17, {.result = c.ccfgResult});
    host.ReplyAlways(16, {.result = c.mainResult});
    EXPECT_EQ(Device().Perform("BlankCheck"), c.outcome);
    EXPECT_EQ(Messages(), c.messages);
  }
}

TEST_F(ChipEraseTest, BlankCheckNeedsAKnownSize) {
  host.properties["DeviceInfoFlashSizeTranslation"] = "";
  EXPECT_EQ(Device().Perform("BlankCheck"), "Error performing blank check - Flash size is unknown.");
  EXPECT_EQ(Saci(), "SACI 1/0000");
}

}  // namespace
