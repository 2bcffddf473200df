#include <gtest/gtest.h>

#include "TestChip.h"
#include "simulator/HsmImage.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

constexpr std::uint32_t kWorking = 4;
constexpr std::uint32_t kErrorAnswer = 8;

HsmFirmware Version(std::uint8_t major, std::uint8_t minor, std::uint8_t patch) {
  return {.major = major, .minor = minor, .patch = patch, .boots = true, .payload = {1, 2, 3, 4, 5, 6, 7}};
}

ChipDescription ChipWith(HsmKind kind) {
  ChipDescription chip = SmallChip();
  chip.hsm = kind;
  return chip;
}

struct HsmTest : testing::TestWithParam<HsmKind> {
  static Words Image(const HsmFirmware& firmware) { return AsWords(BuildHsmImage(firmware, GetParam(), 4)); }
  void AwaitWork() {
    while ((target.Read("SECAP_RXCTL") & kWorking) != 0) target.Sleep(1);
  }
  void Begin(const Words& image) {
    target.Send({0x0000'0121, static_cast<std::uint32_t>(image.size())});
    EXPECT_EQ(target.Read("SECAP_RXCTL"), kWorking);
    AwaitWork();
  }
  // In the form of the chip: at once, or record by record until an error answer comes.
  void Stream(const Words& image) {
    const std::span<const std::uint32_t> words = image;
    if (GetParam() == HsmKind::Whole) return target.WriteTxWords(words);
    for (std::size_t at = 0; at < words.size() && (target.Read("SECAP_RXCTL") & kErrorAnswer) == 0;) {
      const std::size_t size = at == 0 ? 5 : 1 + (words[at] + 3) / 4;
      target.WriteTxWords(words.subspan(at, std::min(size, words.size() - at)));
      EXPECT_EQ(target.Read("SECAP_RXCTL") & kWorking, kWorking) << at;
      AwaitWork();
      at += size;
    }
  }
  Words Update(const Words& image) {
    Begin(image);
    Stream(image);
    return target.Answer();
  }
  std::uint32_t InstalledVersion() {
    const Words info = target.Command({0x0000'0222});
    EXPECT_EQ(info[0], 0x0900'0222u);
    return info.size() == 10 ? info[8] & 0x00FF'FFFF : 0;
  }
  Words Status() { return target.Command({0x0000'0323}); }

  TestChip target{ChipWith(GetParam())};
};

TEST_P(HsmTest, InstallsANewerOrTheSameVersionAndSaysWhenItDoesNotStart) {
  EXPECT_EQ(InstalledVersion(), 0x01'00'00u);
  EXPECT_EQ(Status(), (Words{0x0100'0323, 0}));
  EXPECT_EQ(Update(Image(Version(1, 2, 3))), (Words{0x0000'0121}));
  EXPECT_EQ(InstalledVersion(), 0x01'02'03u);
  EXPECT_EQ(Status(), (Words{0x0100'0323, 1}));
  EXPECT_EQ(Update(Image(Version(1, 2, 3))), (Words{0x0000'0121}));
  EXPECT_EQ(target.Command({0x0000'0422}),
            (Words{0x0900'0422, 0x4D'5348, 0x4'0000, 2, 0, 0, 0, 0, 0x01'02'03, 0}))
      << "name, size, updates";
  HsmFirmware smallest = Version(1, 2, 3);
  smallest.payload.resize(GetParam() == HsmKind::Whole ? 1 : 0);
  EXPECT_EQ(Image(smallest).size(), 5u);
  EXPECT_EQ(Update(Image(smallest)), (Words{0x0000'0121}));
  smallest.boots = false;
  EXPECT_EQ(Update(Image(smallest)), (Words{0x008E'0121}));
  EXPECT_EQ(Status(), (Words{0x0100'0323, 7}));
  EXPECT_EQ(target.Command({0x0000'0422}), (Words{0x008E'0422}));
}

TEST_P(HsmTest, RefusesAnOlderVersionBeforeThePayload) {
  Update(Image(Version(2, 0, 0)));
  const Words older = Image(Version(1, 255, 255));
  Begin(older);
  target.WriteTxWords(std::span(older).first(GetParam() == HsmKind::Whole ? 4 : 5));
  EXPECT_EQ(target.Read("SECAP_RXCTL"), kWorking);
  AwaitWork();
  EXPECT_EQ(target.Read("SECAP_RXCTL"), 1 | kErrorAnswer);
  EXPECT_EQ(target.Answer(), (Words{0x0090'0121}));
  EXPECT_EQ(InstalledVersion(), 0x02'00'00u);
  EXPECT_EQ(Status(), (Words{0x0100'0323, 5}));
}

TEST_P(HsmTest, RefusesEveryChangedWordButTheVersionAndTellsHeaderFromPayload) {
  const bool whole = GetParam() == HsmKind::Whole;
  const Words image = Image(Version(3, 0, 0));
  const std::size_t versionWord = whole ? 1 : 2;
  for (std::size_t i = 0; i < image.size(); ++i) {
    target.Become(BlankState(SmallChip()));
    Words changed = image;
    changed[i] ^= 0x0000'8000;
    const bool version = i == versionWord, payload = i > versionWord + 1 && (whole || i % 2 == 0);
    const Words expected = version ? Words{0x121} : payload ? Words{0x0091'0121} : Words{0x008F'0121};
    EXPECT_EQ(Update(changed), expected) << i;
    EXPECT_EQ(Status(), (Words{0x0100'0323, version ? 1u : payload ? 4u : 3u})) << i;
    EXPECT_EQ(InstalledVersion(), version ? 0x03'80'00u : 0x01'00'00u) << i;
  }
}

TEST_P(HsmTest, AnImageThatBreaksOffIsAFailedUpdate) {
  Words image = Image(Version(4, 0, 0));
  image.resize(0x1'0000);  // 256 KiB, the largest
  for (const bool byReset : {false, true}) {
    target.Become(BlankState(SmallChip()));
    EXPECT_EQ(Status(), (Words{0x0100'0323, 0})) << "a reset alone breaks nothing off";
    Begin(image);
    target.WriteTxWords(std::span(image).first(3));
    if (byReset) target.EnterSaci();
    EXPECT_EQ(Status(), (Words{0x0100'0323, 5}));
    EXPECT_EQ(InstalledVersion(), 0x01'00'00u);
  }
}

TEST_P(HsmTest, WordsBeforeItIsReadyOverflow) {
  const Words image = Image(Version(4, 0, 0));
  target.Send({0x0000'0121, static_cast<std::uint32_t>(image.size())});
  target.WriteTxWords(image);
  EXPECT_EQ(target.Answer(), (Words{0x0085'0121}));
  EXPECT_EQ(Status(), (Words{0x0100'0323, 5}));
  EXPECT_EQ(InstalledVersion(), 0x01'00'00u);
}

INSTANTIATE_TEST_SUITE_P(BothForms, HsmTest, testing::Values(HsmKind::Whole, HsmKind::Records),
                         [](const auto& form) { return form.param == HsmKind::Whole ? "Whole" : "Records"; });

TEST(HsmImageTest, HasTheDocumentedWords) {
  HsmFirmware firmware{.major = 1, .minor = 2, .patch = 3, .boots = false, .payload = {}};
  for (const char c : std::string_view("123456789")) firmware.payload.push_back(static_cast<std::uint8_t>(c));
  EXPECT_EQ(AsWords(BuildHsmImage(firmware, HsmKind::Whole, 5)),
            (Words{0x464D'5348, 0x0101'0203, 9, 0xCBF4'3926, 0x3433'3231, 0x3837'3635, 0x0000'0039}));
  EXPECT_EQ(
      AsWords(BuildHsmImage(firmware, HsmKind::Records, 5)),
      (Words{0x524D'5348, 12, 0x0101'0203, 9, 0xCBF4'3926, 5, 0x3433'3231, 0x0000'0035, 4, 0x3938'3736}));
  EXPECT_EQ(ErrorOf([&] { BuildHsmImage(firmware, HsmKind::None, 5); }),
            "A chip without security module takes no image");
  EXPECT_EQ(ErrorOf([&] { BuildHsmImage(firmware, HsmKind::Records, 0); }),
            "An image record holds at least one byte");
}

}  // namespace
}  // namespace simulator
