#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "TestImage.h"

// Images loaded into the simulated chip through the built library and the reference host, for every device
// description, erase setting and sector option, and compared with the chip byte for byte.

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t kSectorSize = 2048;

struct SectorOption {
  const char* name;
  std::vector<std::pair<const char*, const char*>> settings;
  std::set<std::uint32_t> skipped;
};

const std::vector<SectorOption>& SectorOptions() {
  static const std::vector<SectorOption> options = {
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

std::string CaseName(const testing::TestParamInfo<Case>& info) {
  static const char* const s_eraseNames[] = {"NoErase", "ChipErase", "RetainMain", "RetainAll",
                                             "RetainConfiguration"};
  std::string name = info.param.device + "_" + s_eraseNames[static_cast<int>(info.param.erase)];
  return TestName(name);
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

TEST_P(WholeLoadTest, PutsEveryByteWhereItBelongsAndLeavesTheRest) {
  for (const SectorOption& option : SectorOptions()) {
    SCOPED_TRACE(option.name);
    WholeLoad load(GetParam(), option);
    const host::DeviceDescription& device = load.bench.device;
    const host::LoadReport report = load.bench.Load(load.image.Segments(device));
    ASSERT_EQ(Outcome(report), "ok");
    EXPECT_THAT(Errors(report), testing::IsEmpty());

    const simulator::ChipState& after = load.bench.Chip().State();
    EXPECT_THAT(DifferingSectors(after.main, load.ExpectedMain()), testing::IsEmpty());
    if (load.RetainsConfiguration()) {
      EXPECT_EQ(after.ccfg, load.before.ccfg);
      EXPECT_EQ(after.scfg, load.before.scfg);
    } else {
      EXPECT_EQ(after.ccfg, WithoutUserRecord(device, CcfgWithCrcs(device, load.image.ccfg)));
      EXPECT_EQ(after.scfg, ScfgWithCrc(device, load.image.scfg));
    }
    const host::AddressRange otp = device.chip.otp;
    EXPECT_EQ(after.otp, Laid(otp.size != 0 ? std::vector{load.image.otp} : std::vector<host::ImageSegment>{},
                              otp.base, otp.size, 0xFF));
    EXPECT_EQ(after.ram, Laid(load.image.ram, device.chip.ram.base, after.ram.size(), 0x00));
  }
}

TEST_P(WholeLoadTest, WarnsOfWhatItDoesNotErase) {
  WholeLoad load(GetParam(), SectorOptions().front());
  const std::vector<std::string> infos = Infos(load.bench.Load(load.image.Segments(load.bench.device)));
  const auto warns = [&](const char* text) {
    return std::find(infos.begin(), infos.end(), text) != infos.end();
  };
  EXPECT_EQ(warns("The CCFG sector has not been erased. Writing to CCFG could fail."), !load.Erases());
  EXPECT_EQ(warns("The SCFG sector has not been erased. Writing to SCFG could fail."), !load.Erases());
  // The one word covers all three: an erase that keeps CCFG and SCFG does not count.
  EXPECT_EQ(warns("Chip has not been erased. Writing to OTP could fail."),
            load.bench.device.chip.otp.size != 0 && (!load.Erases() || load.RetainsConfiguration()));
}

TEST_P(WholeLoadTest, NamesTheSectorsItSkipsWhenAskedToSayMore) {
  for (const SectorOption& option : SectorOptions()) {
    SCOPED_TRACE(option.name);
    WholeLoad load(GetParam(), option);
    load.bench.Set("FlashVerboseMode", "1");
    const std::vector<std::string> infos = Infos(load.bench.Load(load.image.Segments(load.bench.device)));
    const auto times = [](bool expected) { return std::size_t{expected ? 1U : 0U}; };
    const bool listed = load.bench.settings.Get("FlashPageToggle") == "1";
    EXPECT_THAT(infos, Contains("Flashloader: Verbose output enabled.").Times(1));
    EXPECT_THAT(infos, Contains("Performing Chip Erase").Times(times(load.Erases())));
    EXPECT_THAT(infos, Contains(HasSubstr("Skipping programming the following sector(s): "))
                           .Times(times(listed || load.RetainsMain())));
    EXPECT_THAT(infos, Contains(HasSubstr("Chip Erase: Retained the following sector(s): 1, 31, 40-47, "))
                           .Times(times(load.RetainsMain())));
  }
}

INSTANTIATE_TEST_SUITE_P(AllDevices, WholeLoadTest, testing::ValuesIn(Cases()), CaseName);

class EveryDeviceTest : public testing::TestWithParam<std::string> {
 protected:
  EveryDeviceTest() : bench(GetParam()), image(MakeImage(bench.device, 300)) {}

  Workbench bench;
  TestImage image;
};

TEST_P(EveryDeviceTest, LeavesTheHostConnectedToTheCoreAndOffTheSecurePort) {
  ASSERT_EQ(Outcome(bench.Load(image.Segments(bench.device))), "ok");
  EXPECT_TRUE(bench.services.IsConnected(host::Core::Cortex));
  EXPECT_FALSE(bench.services.IsConnected(host::Core::SecureAp));
}

TEST_P(EveryDeviceTest, WritesRamDataAloneWithoutTouchingFlash) {
  bench.Prepare([](simulator::ChipState& state) { state.main = Noise(state.main.size(), 9); });
  const Bytes mainBefore = bench.Chip().State().main;
  const host::LoadReport report = bench.Load(image.ram);
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_EQ(bench.Chip().State().main, mainBefore);
  EXPECT_EQ(bench.Chip().State().ram,
            Laid(image.ram, bench.device.chip.ram.base, bench.device.chip.ram.size, 0x00));
  EXPECT_THAT(bench.services.Commands(), Not(Contains(9)));
}

TEST_P(EveryDeviceTest, ReportsAnErasedChipLeftWithoutConfiguration) {
  bench.SetErase(Erase::Chip);
  const host::LoadReport report = bench.Load(image.main);
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report),
              testing::ElementsAre(
                  R"(Image must contain (correctly sized) CCFG section, when erase type is "Chip erase")",
                  R"(Image must contain (correctly sized) SCFG section, when erase type is "Chip erase")"));
}

TEST_P(EveryDeviceTest, FailsOnFlashThatIsNotErasedAndSaysSo) {
  bench.SetErase(Erase::None);
  bench.Prepare([](simulator::ChipState& state) { state.main[2048] = 0; });
  EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))),
            "Error when verifying flash - Calculated CRC32 does not match expected CRC32");
}

TEST_P(EveryDeviceTest, FailsOnACellThatDoesNotProgram) {
  bench.Chip().AskedFaults().Add("cell:0xF001");  // in sector 30
  EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))),
            "Error when verifying flash - Calculated CRC32 does not match expected CRC32");
}

TEST_P(EveryDeviceTest, TakesAnImageLinkedAtTheAliasOnlyWhereThereIsOne) {
  const std::uint32_t number = bench.device.chip.deviceId >> 12 & 0xFFFF;
  const bool hasAlias = number == 0xBB98 || number == 0xBBC5;
  host::PluginDevice device(Plugin(), bench.services, bench.device.name);
  (void)device.Initialize();
  device.StartLoad();
  const Bytes sector = Noise(kSectorSize, 1);
  device.WriteBlock(0x1000'0000 + 7 * kSectorSize, sector);
  const auto begin = bench.Chip().State().main.begin() + 7 * kSectorSize;
  EXPECT_EQ(std::equal(sector.begin(), sector.end(), begin), hasAlias);
}

TEST_P(EveryDeviceTest, ServesManyLoadsOnOneDeviceObject) {
  host::PluginDevice device(Plugin(), bench.services, bench.device.name);
  (void)device.Initialize();
  for (std::uint32_t seed : {400U, 500U, 600U}) {
    TestImage next = MakeImage(bench.device, seed);
    next.otp = image.otp;  // programs once
    device.StartLoad();
    for (const host::ImageBlock& block : bench.Plan(next.Segments(bench.device)).blocks)
      device.WriteBlock(block.address, block.data);
    device.EndLoad();
    EXPECT_EQ(bench.Chip().State().main, Laid(next.main, 0, bench.device.chip.mainSize, 0xFF)) << seed;
    EXPECT_EQ(bench.Chip().State().scfg, ScfgWithCrc(bench.device, next.scfg)) << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(AllDevices, EveryDeviceTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
