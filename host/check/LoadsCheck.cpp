#include <fmt/format.h>

#include <algorithm>

#include "host/check/CheckBench.h"
#include "host/check/ExpectedChip.h"

namespace host {

namespace {

enum class Content { All, WithPassword, UserRecord, Ram };

struct LoadCase {
  const char* name;
  const char* settings;  // NAME=VALUE;...: a device that has not all of them leaves the case out
  Content content = Content::All;
};

const LoadCase s_cases[] = {
    {"as described", ""},
    {"sectors kept that the CCFG marks",
     "FlashEraseSetting=Chip Erase (retain sectors specified in CCFG);FlashVerboseMode=1"},
    {"sectors and configuration kept", "FlashEraseSetting=Retain MAIN sectors and CCFG and SCFG"},
    {"configuration kept", "FlashEraseSetting=Retain CCFG and SCFG sectors"},
    {"nothing erased", "FlashEraseSetting=Do not erase sectors (program load only)"},
    {"sectors kept that the CCFG marks", "NoFlashErase=0;RetainMainSectors=1;FlashVerboseMode=1"},
    {"sectors and configuration kept", "NoFlashErase=0;RetainMainSectors=1;RetainCcfgScfg=1"},
    {"configuration kept", "NoFlashErase=0;RetainCcfgScfg=1"},
    {"nothing erased", "NoFlashErase=1"},
    {"sectors left out by number", "FlashPageToggle=1;FlashPages= 0, 30 -31,250-255 "},
    {"sectors left out by content", "FlashPagesFilledWith=1;FlashPagesFilledWithValue=0xEE"},
    {"sectors left out by both",
     "FlashPageToggle=1;FlashPages=4,40;FlashPagesFilledWith=1;FlashPagesFilledWithValue=0xee"},
    {"CRC words as the image has them", "CcfgOverwriteCrcsToggle=0;ScfgOverwriteCrcsToggle=0"},
    {"with the user record", "CcfgSkipProgrammingUserRecord=0"},
    {"with the user record, its CRC not checked",
     "CcfgSkipProgrammingUserRecord=0;CcfgOverwriteCrcsToggle=0;CcfgVerifyUserRecordCrcToggle=0"},
    {"debugging opened by the settings", "CcfgOverwriteAuthorizationFieldsToggle=1"},
    {"debugging closed by the settings",
     "CcfgOverwriteAuthorizationFieldsToggle=1;"
     "CcfgOverwriteAuthorizationFieldsTypeChoicelist=Debug not allowed"},
    {"debugging behind a password", "DebugPassword=open sesame!", Content::WithPassword},
    {"debugging behind a password in digits",
     "DebugPasswordFormatList=Hex;DebugPasswordHex=6f70656e20736573616d6521", Content::WithPassword},
    {"debugging behind a password by the settings",
     "DebugPassword=open sesame!;CcfgOverwriteAuthorizationFieldsToggle=1;"
     "CcfgOverwriteAuthorizationFieldsTypeChoicelist=Require debug authentication;"
     "CcfgOverwriteAuthorizationFieldsPasswordId=0123456789abcdef;"
     "CcfgOverwriteAuthorizationFieldsPasswordHash="
     "fd4d49e7a2cf6cc1c00217e59853837439283a28411869e2b428246c7b63ccbf"},
    {"the user record alone", "", Content::UserRecord},
    {"RAM data alone", "", Content::Ram},
};

std::vector<ImageSegment> Image(const ChipFacts& chip, Content content) {
  CheckImage image(chip, 100);
  if (content == Content::WithPassword) image.RequirePassword();
  if (content == Content::Ram) return image.ram;
  if (content != Content::UserRecord) return image.All();
  std::vector<std::uint8_t> record = Noise(chip.userRecord.length, 200);
  PutCrcRight(record, {0, chip.userRecord.length - 4});
  return {{chip.ccfg.base + chip.userRecord.offset, record}};
}

void RunCase(const CheckPart& part, const LoadCase& load, CheckReport& report) {
  CheckBench bench(part, report);
  if (!bench.Set(load.settings)) return;
  report.At(fmt::format("{}, {}", part.device.name, load.name));
  report.Count();
  const LoadPlan plan = bench.Plan(Image(part.device.chip, load.content));
  bench.PutChip(ChipBeforeLoad(bench.Chip(), plan, part.device.chip, bench.settings));
  CheckedDevice device(bench);
  device.LoadWell(plan);
}

// An image that would keep everybody out of the chip for ever.
void RunLockingImage(const CheckPart& part, CheckReport& report) {
  CheckBench bench(part, report);
  report.At(fmt::format("{}, an image that locks the chip", part.device.name));
  report.Count();
  CheckImage image(part.device.chip, 100);
  image.ForbidEverything();
  CheckedDevice device(bench);
  if (!device.Load(bench.Plan(image.All()))) report.Find("the load succeeds");
}

struct Change {
  const char* what;
  std::vector<std::uint8_t> simulator::ChipState::*memory;
  std::size_t offset;
  bool isSeen = true;
};

// Loads that only compare: one bit of the chip at a time is another.
void RunVerifications(const CheckPart& part, CheckReport& report) {
  using State = simulator::ChipState;
  const ChipFacts& chip = part.device.chip;
  const Change changes[] = {
      {"MAIN", &State::main, 0},
      {"fill beside a piece of MAIN", &State::main, 3 * chip.sectorSize + 99},
      {"a sector that the image does not touch", &State::main, 20 * chip.sectorSize, false},
      {"CCFG", &State::ccfg, chip.ccfgCrc.offset + chip.ccfgCrc.length - 1},
      {"SCFG", &State::scfg, chip.scfgCrc.offset},
      {"RAM", &State::ram, 0, false}};
  CheckBench bench(part, report);
  report.At(fmt::format("{}, before a comparison", part.device.name));
  const LoadPlan plan = bench.Plan(CheckImage(chip, 100).All());
  CheckedDevice device(bench);
  device.LoadWell(plan);
  const State loaded = bench.Chip();
  (void)bench.Set("ImageVerificationSetting=1");
  report.At(fmt::format("{}, comparison with an equal chip", part.device.name));
  device.LoadWell(plan);
  for (const Change& change : changes) {
    report.At(fmt::format("{}, comparison with another bit in {}", part.device.name, change.what));
    report.Count();
    State changed = loaded;
    if (change.offset >= (changed.*change.memory).size()) continue;
    (changed.*change.memory)[change.offset] ^= 0x10;
    bench.PutChip(changed);
    CheckedDevice comparing(bench);
    const bool isSeen = comparing.Load(plan).has_value();
    if (isSeen != change.isSeen) report.Find(isSeen ? "tells a difference" : "tells no difference");
    if (bench.Chip() != changed) report.Find("changes the chip");
  }
}

}  // namespace

void CheckLoads(const CheckPart& part, CheckReport& report) {
  for (const LoadCase& load : s_cases) RunCase(part, load, report);
  RunLockingImage(part, report);
  RunVerifications(part, report);
}

}  // namespace host
