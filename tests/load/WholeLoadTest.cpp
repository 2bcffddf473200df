#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "TestImage.h"

// Images loaded into the simulated chip through the built library and the reference host, for every device
// description, erase setting and sector option, and compared with the chip byte for byte.

namespace {

constexpr std::uint32_t kSectorSize = 2048;

struct SectorOption {
  const char* name;
  std::vector<std::pair<const char*, const char*>> settings;
  std::set<std::uint32_t> skipped;
};

const std::vector<SectorOption>& SectorOptions() {
  const static std::vector<SectorOption> options = {
      {"AllSectors", {}, {}},
      {"ListedSectorsSkipped",
       {{"FlashPageToggle", "1"}, {"FlashPages", " 0, 30 -31,250-255 "}},
       {0, 30, 31, 250, 251, 252, 253, 254, 255}},
      {"FilledSectorsSkipped",
       {{"FlashPagesFilledWith", "1"}, {"FlashPagesFilledWithValue", "0xEE"}},
       {kFilledSector}},
      {"Both",
       {{"FlashPageToggle", "1"},
        {"FlashPages", "4,40"},
        {"FlashPagesFilledWith", "1"},
        {"FlashPagesFilledWithValue", "0xee"}},
       {4, 40, kFilledSector}},
  };
  return options;
}

struct Case {
  std::string device;
  Erase erase;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const std::string& name : DeviceNames()) {
    Workbench bench(name);
    for (const Erase erase : {Erase::None, Erase::Chip, Erase::RetainMain, Erase::RetainMainAndConfiguration,
                              Erase::RetainConfiguration})
      if (bench.SetErase(erase)) cases.push_back({name, erase});
  }
  return cases;
}

std::string NameOf(const Case& loadCase) {
  const static char* const s_eraseNames[] = {"NoErase", "ChipErase", "RetainMain", "RetainAll",
                                             "RetainConfiguration"};
  return TestName(loadCase.device + "_" + s_eraseNames[static_cast<int>(loadCase.erase)]);
}

// Without it, a case is printed byte by byte, padding included.
void PrintTo(const Case& loadCase, std::ostream* out) {
  *out << NameOf(loadCase);
}

// One load in preparation, on a chip that already holds something everywhere.
struct WholeLoad {
  WholeLoad(const Case& given, const SectorOption& sectorOption)
      : erase(given.erase), option(sectorOption), bench(given.device), image(MakeImage(bench.device, 100)) {
    bench.SetErase(erase);
    for (const auto& [name, value] : option.settings) bench.Set(name, value);
    bench.Prepare([&](simulator::ChipState& state) { FillWithEarlierLoad(state); });
    before = bench.Chip().State();
  }

  bool Erases() const { return erase != Erase::None; }
  bool RetainsMain() const {
    return erase == Erase::RetainMain || erase == Erase::RetainMainAndConfiguration;
  }
  bool RetainsConfiguration() const {
    return erase == Erase::RetainConfiguration || erase == Erase::RetainMainAndConfiguration;
  }
  bool Touches(std::uint32_t sector) const {
    for (const host::ImageSegment& segment : image.main)
      if (segment.address < (sector + 1) * kSectorSize &&
          segment.address + segment.data.size() > sector * kSectorSize)
        return true;
    return false;
  }

  // Something on the chip everywhere: what stays and what goes can be told apart. Without an erase, only
  // where the image does not go.
  void FillWithEarlierLoad(simulator::ChipState& state) const {
    state.main = Noise(state.main.size(), 7);
    const TestImage old = MakeImage(bench.device, 200);
    if (Erases()) {
      state.ccfg = CcfgWithCrcs(bench.device, old.ccfg);
      state.scfg = ScfgWithCrc(bench.device, old.scfg);
      return;
    }
    for (std::uint32_t sector = 0; sector < state.main.size() / kSectorSize; ++sector)
      if (Touches(sector))
        std::fill_n(state.main.begin() + sector * kSectorSize, kSectorSize, std::uint8_t{0xFF});
  }

  Bytes ExpectedMain() const {
    const Bytes laid = Laid(image.main, 0, before.main.size(), 0xFF);
    Bytes expected = before.main;
    for (std::uint32_t sector = 0; sector < expected.size() / kSectorSize; ++sector) {
      const bool retained = RetainsMain() && IsMarkedRetained(bench.device, sector);
      if (retained) continue;
      const auto target = expected.begin() + sector * kSectorSize;
      if (Erases()) std::fill_n(target, kSectorSize, std::uint8_t{0xFF});
      if (Touches(sector) && !option.skipped.contains(sector))
        std::copy_n(laid.begin() + sector * kSectorSize, kSectorSize, target);
    }
    return expected;
  }

  Erase erase;
  const SectorOption& option;
  Workbench bench;
  TestImage image;
  simulator::ChipState before;
};

std::vector<std::uint32_t> DifferingSectors(const Bytes& left, const Bytes& right) {
  std::vector<std::uint32_t> sectors;
  for (std::uint32_t sector = 0; sector < left.size() / kSectorSize; ++sector)
    if (!std::equal(left.begin() + sector * kSectorSize, left.begin() + (sector + 1) * kSectorSize,
                    right.begin() + sector * kSectorSize))
      sectors.push_back(sector);
  return sectors;
}

class WholeLoadTest : public testing::TestWithParam<Case> {};

TEST_P(WholeLoadTest, PutsEveryByteWhereItBelongsAndTellsWhatItLeaves) {
  for (const SectorOption& option : SectorOptions()) {
    SCOPED_TRACE(option.name);
    WholeLoad load(GetParam(), option);
    load.bench.Set("FlashVerboseMode", "1");
    const host::DeviceDescription& device = load.bench.device;
    const host::AddressRange otp = device.chip.otp;
    const host::LoadRecord report = load.bench.Load(load.image.Segments(device));
    ASSERT_EQ(Outcome(report), "ok");
    EXPECT_THAT(Errors(report), testing::IsEmpty());
    EXPECT_TRUE(load.bench.services.IsConnected(host::Core::Cortex));
    EXPECT_FALSE(load.bench.services.IsConnected(host::Core::SecureAp));

    const simulator::ChipState& after = load.bench.Chip().State();
    EXPECT_THAT(DifferingSectors(after.main, load.ExpectedMain()), testing::IsEmpty());
    if (load.RetainsConfiguration()) {
      EXPECT_EQ(after.ccfg, load.before.ccfg);
      EXPECT_EQ(after.scfg, load.before.scfg);
    } else {
      EXPECT_EQ(after.ccfg, WithoutUserRecord(device, CcfgWithCrcs(device, load.image.ccfg)));
      EXPECT_EQ(after.scfg, ScfgWithCrc(device, load.image.scfg));
    }
    EXPECT_EQ(after.otp, Laid(otp.size != 0 ? std::vector{load.image.otp} : std::vector<host::ImageSegment>{},
                              otp.base, otp.size, 0xFF));
    EXPECT_EQ(after.ram, Laid(load.image.ram, device.chip.ram.base, after.ram.size(), 0x00));

    const bool skipsListed = load.bench.settings.Get("FlashPageToggle") == "1";
    const std::pair<const char*, bool> infos[] = {
        {"Performing Chip Erase", load.Erases()},
        {"Chip Erase: Retained the following sector(s): 1, 31, 40-47, ", load.RetainsMain()},
        {"Skipping programming the following sector(s): ", skipsListed || load.RetainsMain()},
        {"The CCFG sector has not been erased. Writing to CCFG could fail.", !load.Erases()},
        {"The SCFG sector has not been erased. Writing to SCFG could fail.", !load.Erases()},
        // The one word covers all three: an erase that keeps CCFG and SCFG does not count.
        {"Chip has not been erased. Writing to OTP could fail.",
         otp.size != 0 && (!load.Erases() || load.RetainsConfiguration())}};
    for (const auto& [text, isTold] : infos)
      EXPECT_THAT(Infos(report), testing::Contains(testing::HasSubstr(text)).Times(isTold ? 1U : 0U));
  }
}

INSTANTIATE_TEST_SUITE_P(AllDevices, WholeLoadTest, testing::ValuesIn(Cases()),
                         [](const auto& test) { return NameOf(test.param); });

class IncompleteLoadTest : public testing::TestWithParam<std::string> {
 protected:
  Workbench bench{GetParam()};
  TestImage image = MakeImage(bench.device, 300);
};

TEST_P(IncompleteLoadTest, ReportsAnErasedChipLeftWithoutConfiguration) {
  bench.SetErase(Erase::Chip);
  const host::LoadRecord report = bench.Load(image.main);
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report),
              testing::ElementsAre(
                  R"(Image must contain (correctly sized) CCFG section, when erase type is "Chip erase")",
                  R"(Image must contain (correctly sized) SCFG section, when erase type is "Chip erase")"));
}

TEST_P(IncompleteLoadTest, FailsOnFlashThatIsNotErasedAndSaysSo) {
  bench.SetErase(Erase::None);
  bench.Prepare([](simulator::ChipState& state) { state.main[2048] = 0; });
  EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))),
            "Error when verifying flash - Calculated CRC32 does not match expected CRC32");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, IncompleteLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
