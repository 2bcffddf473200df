// The SCFG as it is programmed: its CRC field, and its key ring cut to the entries in use.

#include "DeviceTest.h"
#include "ScfgKeyRing.h"

namespace {

constexpr std::size_t kRingStart = 232;
constexpr std::size_t kEntrySize = 44;
constexpr std::size_t kEntries = 18;

// An SCFG whose key ring holds a key where `ring` has a letter; further entries are unused.
Bytes ScfgWith(const std::string& ring) {
  Bytes scfg = Pattern(kScfgSize);
  for (std::size_t entry = 0; entry < kEntries; ++entry)
    if (entry >= ring.size() || ring[entry] == '.')
      std::fill_n(scfg.begin() + static_cast<std::ptrdiff_t>(kRingStart + entry * kEntrySize), kEntrySize,
                  std::uint8_t{0xFF});
  return scfg;
}

struct ScfgTest : DeviceTest {
  // The end of a load with this SCFG.
  std::string Load(const Bytes& scfg, const std::string& settings = "") {
    Play(settings + "; start c");
    EXPECT_EQ(Device().Write(kScfg, scfg), "ok");
    return Play(". end");
  }
};

TEST_F(ScfgTest, UnusedKeysAreCutOff) {
  const std::string all(kEntries, 'k');
  const struct {
    std::string ring;
    std::size_t bytes;
  } rows[] = {{"", 276},       {"k", 276},    {"kk", 320},          {"kkk", 364},  // one entry stays
              {"kk.kkk", 320}, {".kkk", 276}, {all.substr(1), 980}, {all, 1024}};
  for (const auto& row : rows) {
    const Bytes scfg = ScfgWith(row.ring);
    Load(scfg);
    EXPECT_EQ(Command(26).Specific(), row.bytes) << row.ring;
    Bytes sent = Payload(26);
    EXPECT_EQ(sent.size(), kScfgSize);
    sent.resize(row.bytes);
    EXPECT_EQ(sent, Bytes(scfg.begin(), scfg.begin() + static_cast<std::ptrdiff_t>(row.bytes))) << row.ring;
    EXPECT_EQ(Command(27).words.at(1), Crc(scfg, 0, 0xE4));
  }
}

TEST(ScfgKeyRing, AKeyIsAnyEntryThatIsNotAllOnes) {
  for (const std::size_t byte : {0U, 43U}) {
    Bytes scfg = ScfgWith("k");
    scfg[kRingStart + kEntrySize + byte] = 0xFE;
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), 320U);
  }
  for (const std::size_t size : {0U, 1U, 231U, 232U, 276U, 1023U}) {  // too short for the ring
    Bytes scfg(size, 0xFF);
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), size);
  }
}

TEST_F(ScfgTest, TheCrcFieldIsRenewedOnRequestByThePartsOwnRange) {
  const struct {
    const char* part;
    std::uint32_t offset, length;
  } rows[] = {
      {"Serin", 0, 0xE4}, {"HighPg1", 0, 0xE4}, {"HighPg2", 4, 0xDC}, {"HighNew", 4, 0xDC}, {"Mid", 4, 0xDC}};
  const Bytes scfg = ScfgWith("k");
  for (const auto& row : rows) {
    const std::string told = Load(scfg, std::string("ScfgOverwriteCrcsToggle=1; part=") + row.part);
    const std::uint32_t field = row.offset + row.length;
    const std::uint32_t crc = Crc(scfg, row.offset, row.length);
    EXPECT_EQ(WordAt(Payload(26), field), crc);
    EXPECT_EQ(Command(27).words.at(1), crc);
    EXPECT_EQ(told.find("I Updating CRC32 field scfg.crc32 @ address 0x" + Hex8(kScfg + field) +
                        ", based on data in the range [0x" + Hex8(kScfg + row.offset) + ", 0x" +
                        Hex8(kScfg + field - 1) + "]. Value changes from 0x" + Hex8(WordAt(scfg, field)) +
                        " to 0x" + Hex8(crc)),
              std::string("12/1 17/3 | ").size())
        << told;
  }
}

TEST_F(ScfgTest, TheCheckedRangeMustFitTheReducedCopy) {
  const std::string tooFar =
      " | ! Offset and length defined in flash property \"scfg.crc32Info\" does not fit in SCFG";
  EXPECT_EQ(Load(ScfgWith("kk"), "scfg.crc32Info=0x0:0x115"), "12/1 17/3 26/140 27/1 1 5");
  EXPECT_EQ(Load(ScfgWith("k")), "12/1 17/3 26/114" + tooFar);  // programmed, not verified
  // Renewed, cut off with the rest, and then not there to check.
  const std::string told = Load(ScfgWith("k"), "ScfgOverwriteCrcsToggle=1; scfg.crc32Info=0x0:0x3FC");
  EXPECT_TRUE(told.starts_with("12/1 17/3 | I Updating") && told.ends_with("26/114" + tooFar)) << told;
}

TEST_F(ScfgTest, ASmallScfgIsProgrammedWhole) {
  host.scfgSize = 0x100;
  EXPECT_EQ(Load(Bytes(0x100, 0xFF), "ScfgSize=0x100"), "12/1 17/3 26/100 27/1 1 5");
}

}  // namespace
