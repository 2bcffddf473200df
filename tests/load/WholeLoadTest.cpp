#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "TestImage.h"

// Images loaded into the simulated chip through the built library and the reference host, for every device
// description, erase setting and sector option, and compared with the chip byte for byte; then loads that
// only compare.

namespace {

using State = simulator::ChipState;

struct SectorOption {
  const char* listed;  // sectors to leave out
  const char* filled;  // those to leave out that hold nothing but this
  std::set<std::uint32_t> skipped;
};
const SectorOption s_options[] = {
    {"", "", {}},
    {" 0, 30 -31,250-255 ", "", {0, 30, 31, 250, 251, 252, 253, 254, 255}},
    {"", "0xEE", {kFilledSector}},
    {"4,40", "0xee", {4, 40, kFilledSector}},
};

bool Touches(const TestImage& image, std::uint32_t sector) {
  return std::any_of(image.main.begin(), image.main.end(), [&](const host::ImageSegment& segment) {
    return segment.address < (sector + 1) * kSectorSize &&
           segment.address + segment.data.size() > sector * kSectorSize;
  });
}

// What a load makes of a chip.
State Loaded(State chip, const TestImage& image, const Erase& erase, const SectorOption& option) {
  const Bytes laid = Laid(image.main, 0, chip.main.size(), 0xFF);
  for (std::uint32_t sector = 0; sector < laid.size() / kSectorSize; ++sector) {
    if (erase.keepsMain && image.Retains(sector)) continue;
    const auto target = chip.main.begin() + sector * kSectorSize;
    if (erase.erases) std::fill_n(target, kSectorSize, std::uint8_t{0xFF});
    if (Touches(image, sector) && !option.skipped.contains(sector))
      std::copy_n(laid.begin() + sector * kSectorSize, kSectorSize, target);
  }
  if (!erase.keepsConfiguration) {
    chip.ccfg = WithoutUserRecord(image.chip, CcfgWithCrcs(image.chip, image.ccfg));
    chip.scfg = ScfgWithCrc(image.chip, image.scfg);
  }
  chip.otp = image.Otp();
  chip.ram = image.Ram();
  return chip;
}

void CheckLoad(const std::string& device, const Erase& erase, const SectorOption& option) {
  Workbench bench(device);
  if (!bench.SetErase(erase)) return;
  const bool listsSectors = *option.listed != '\0';
  bench.Set("FlashPageToggle", listsSectors ? "1" : "0");
  bench.Set("FlashPages", option.listed);
  bench.Set("FlashPagesFilledWith", *option.filled != '\0' ? "1" : "0");
  bench.Set("FlashPagesFilledWithValue", option.filled);
  bench.Set("FlashVerboseMode", "1");
  const host::ChipFacts& chip = bench.device.chip;
  const TestImage image(chip, 100);
  // Something on the chip everywhere: what stays and what goes can be told apart. Without an erase, only
  // where the image does not go.
  bench.Prepare([&](State& state) {
    const TestImage earlier(chip, 200);
    state.main = Noise(state.main.size(), 7);
    if (erase.erases) {
      state.ccfg = CcfgWithCrcs(chip, earlier.ccfg);
      state.scfg = ScfgWithCrc(chip, earlier.scfg);
      return;
    }
    for (std::uint32_t sector = 0; sector < state.main.size() / kSectorSize; ++sector)
      if (Touches(image, sector))
        std::fill_n(state.main.begin() + sector * kSectorSize, kSectorSize, std::uint8_t{0xFF});
  });
  const State before = bench.State();

  const host::LoadRecord report = bench.Load(image.All());
  ASSERT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), testing::IsEmpty());
  EXPECT_TRUE(bench.services.IsConnected(host::Core::Cortex));
  EXPECT_FALSE(bench.services.IsConnected(host::Core::SecureAp));
  EXPECT_EQ(Difference(bench.State(), Loaded(before, image, erase, option)), "");

  const std::pair<const char*, bool> infos[] = {
      {"Performing Chip Erase", erase.erases},
      {"Chip Erase: Retained the following sector(s): 1, 31, 40-47, ", erase.keepsMain},
      {"Skipping programming the following sector(s): ", listsSectors || erase.keepsMain},
      {"The CCFG sector has not been erased. Writing to CCFG could fail.", !erase.erases},
      {"The SCFG sector has not been erased. Writing to SCFG could fail.", !erase.erases},
      // The one word covers all three: an erase that keeps CCFG and SCFG does not count.
      {"Chip has not been erased. Writing to OTP could fail.",
       chip.otp.size != 0 && (!erase.erases || erase.keepsConfiguration)}};
  for (const auto& [text, isTold] : infos)
    EXPECT_THAT(Infos(report), testing::Contains(testing::HasSubstr(text)).Times(isTold ? 1U : 0U));
}

class WholeLoadTest : public testing::TestWithParam<std::string> {};

TEST_P(WholeLoadTest, PutsEveryByteWhereItBelongsAndTellsWhatItLeaves) {
  for (const Erase& erase : {kNoErase, kChipErase, kRetainMain, kRetainAll, kRetainConfiguration})
    for (const SectorOption& option : s_options) {
      SCOPED_TRACE(std::string(erase.name) + ", without \"" + option.listed + "\", " + option.filled);
      CheckLoad(GetParam(), erase, option);
    }
}

TEST_P(WholeLoadTest, ComparisonFindsOneBitInEveryRegionAndChangesNothing) {
  Workbench bench(GetParam());
  const Segments image = TestImage(bench.device.chip, 800).All();
  EXPECT_EQ(Outcome(bench.Load(image)), "ok");
  const State loaded = bench.State();

  const host::ChipFacts& chip = bench.device.chip;
  const struct {
    const char* what;
    Bytes State::*region;
    std::size_t offset;
    const char* differs;  // that the outcome names; nothing when it is "ok"
    const char* skipped = "";
  } cases[] = {
      {"first byte of MAIN", &State::main, 0, "flash"},
      {"first byte of MAIN, in a sector to be skipped", &State::main, 0, "", "0"},
      {"fill byte beside a piece", &State::main, 3 * kSectorSize + 99, "flash"},
      {"a sector that the image does not touch", &State::main, 20 * kSectorSize, ""},
      {"boot configuration", &State::ccfg, chip.bootCrc.offset, "CCFG"},
      {"CCFG", &State::ccfg, chip.ccfgCrc.offset + chip.ccfgCrc.length - 1, "CCFG"},
      {"debug configuration", &State::ccfg, chip.debugCrc.offset + chip.debugCrc.length - 1, "CCFG"},
      {"user record, which is left out", &State::ccfg, chip.userRecord.offset, ""},
      {"SCFG", &State::scfg, chip.scfgCrc.offset + chip.scfgCrc.length - 1, "SCFG"},
      {"RAM, which is not compared", &State::ram, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    State changed = loaded;
    (changed.*c.region)[c.offset] ^= 0x10;
    if (chip.otp.size != 0) changed.otp[12] = 0;  // not compared either
    bench.Prepare([&](State& state) { state = changed; });
    bench.Set("FlashPageToggle", *c.skipped == '\0' ? "0" : "1");
    bench.Set("FlashPages", c.skipped);
    const host::LoadRecord report = bench.Verify(image);
    const bool isEqual = *c.differs == '\0';
    EXPECT_EQ(Outcome(report), isEqual ? "ok"
                                       : std::string("Error when verifying ") + c.differs +
                                             " - Calculated CRC32 does not match expected CRC32");
    EXPECT_THAT(Infos(report), testing::Contains("Image Verification Succeeded!").Times(isEqual ? 1U : 0U));
    EXPECT_EQ(Difference(bench.State(), changed), "");
  }
}

INSTANTIATE_TEST_SUITE_P(AllDevices, WholeLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
