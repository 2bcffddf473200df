// Chip erase with its retained sectors, and the blank check.

#include "DeviceTest.h"

namespace {

const std::string kErasing = "I Performing Chip Erase | 1 9/1";
const std::string kNoneRetained =
    "I No sectors were retained during Chip Erase - only allowed if CCFG is valid";

TEST(ChipErase, TheRetainFieldNamesSectors) {
  const struct {
    const char *part, *flashSize, *field, *retained;
  } rows[] = {
      {"Serin", "20000", "3,1", "0-1, 32-39, "},
      {"HighPg1", "20000", "3,1", "0-1, "},
      {"HighNew", "20000", "3,F", "0-1, "},
      {"Mid", "20000", "0,10", "32-39, "},
      {"HighPg2", "80000", "80000000,80000000", "31, 248-255, "},
      {"Serin", "80000", "80000001,08000000", "0, 31, 248-255, "},
      {"Serin", "100000", "0,F0000000", nullptr},
      {"Serin", "80000", "FFFFFFFF,0FFFFFFF", "0-255, "},
      {"Serin", "110000", "1,0,80000001", "0, 256-263, 504-511, "},
      {"Serin", "100000", "1,2,FFFFFFFF,FFFFFFFF,FFFFFFFF", "0, 40-47, "},
      {"Serin", "80000", "2,0,FFFFFFFF", "1, "},  // sectors that do not exist
      {"Serin", "11800", "0,1", "32-34, "},       // half a group exists
      {"Serin", "80000", "0,0", nullptr},
  };
  for (const auto& row : rows) {
    Bench bench;
    const std::string script = std::string("FlashVerboseMode=1; DeviceInfoFlashSizeTranslation=*:*:*:0x") +
                               row.flashSize + "; part=" + row.part + "; 9<" + row.field +
                               "; ChipEraseRetain";
    const std::string told = row.retained == nullptr
                                 ? "No sectors retained"
                                 : std::string("Retained the following sector(s): ") + row.retained;
    EXPECT_EQ(bench.Play(script), "1 | I Performing Chip Erase | 9/1 | I Chip Erase: " + told + " | 20/1")
        << script;
  }
}

TEST(ChipErase, AFieldOfAnotherSizeIsRefused) {
  const auto refusal = [](const char* count) {
    return std::string(
               "1 9/1 | ! Unexpected size of 'ccfg.flashProt.chipEraseRetain' returned from device. Expected "
               "2 or 3 32-bit words (32-bit), but received ") +
           count + " 32-bit words.";
  };
  const std::vector<Row> plays = {{"9<1; ChipEraseRetain", refusal("1")},
                                  {"9<1,1,1,1; ChipEraseRetain", refusal("4")},
                                  {"9<1,1,1,1,1,1; ChipEraseRetain", refusal("6")}};
  ExpectPlays("", plays);
}

TEST(ChipErase, AnEmptyFieldIsToldWhetherVerboseOrNot) {
  const std::vector<Row> plays = {
      {"ChipEraseRetain", "1 9/1 | " + kNoneRetained + " | 20/1"},
      // What the erase before retained is forgotten.
      {"FlashVerboseMode=1; ReadDeviceInfo; 9<1,0; ChipEraseRetain . ChipEraseRetain",
       "1 | I Performing Chip Erase | 9/1 | " + kNoneRetained +
           " | I Chip Erase: No sectors retained | 20/1"},
      {"FlashVerboseMode=1; 9<1,2,3,4; Erase", "1 | I Performing Chip Erase | 9 20/1"},  // looks at no answer
  };
  ExpectPlays("", plays);
}

TEST(BlankCheck, TellsWhatIsProgrammed) {
  const std::string ccfg = "I Blank Check: Device CCFG sector is programmed";
  const std::string main = "I Blank Check: Device MAIN flash is programmed";
  const std::vector<Row> plays = {
      {"BlankCheck", "1 17/8000 16/8000 | I Blank Check: Device flash is blank | 20/1"},
      {"17!89; BlankCheck", "1 17/8000 | " + ccfg + " | 16/8000 20/1"},
      {"16!89; BlankCheck", "1 17/8000 16/8000 | " + main + " | 20/1"},
      {"17!89; 16!89; BlankCheck", "1 17/8000 | " + ccfg + " | 16/8000 | " + main + " | 20/1"},
      {"17!86; BlankCheck",
       "1 17/8000 | ! Error performing blank check on CCFG sector- Command is not allowed due to "
       "restrictions"},
      {"17!89; 16!FF; BlankCheck", "1 17/8000 | " + ccfg +
                                       " | 16/8000 | ! Error performing blank check on MAIN "
                                       "flash bank - Unspecified command failure"},
      {"DeviceInfoFlashSizeTranslation=; BlankCheck",
       "I The FLASH size of the target could not be determined. | 1 | ! Error performing blank "
       "check - Flash "
       "size is unknown."},
  };
  ExpectPlays("", plays);
}

}  // namespace
