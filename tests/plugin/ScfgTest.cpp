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
  ScfgTest() { host.bootStatus = 0x81; }

  std::string LoadScfg(const Bytes& scfg) {
    Device();
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Write(kCcfg, OpenCcfg()), "ok");
    EXPECT_EQ(Write(kScfg, scfg), "ok");
    host.ForgetCalls();
    return End();
  }
};

TEST_F(ScfgTest, UnusedKeysAreCutOff) {
  const std::string all(kEntries, 'k');
  const struct {
    std::string ring;
    std::size_t bytes;
  } cases[] = {
      {"", 276},  // one entry stays
      {"k", 276},    {"kk", 320},          {"kkk", 364}, {"kk.kkk", 320},
      {".kkk", 276}, {all.substr(1), 980}, {all, 1024},
  };
  for (const auto& c : cases) {
    const Bytes scfg = ScfgWith(c.ring);
    EXPECT_EQ(LoadScfg(scfg), "ok");
    EXPECT_EQ(Command(26).Specific(), c.bytes) << c.ring;
    Bytes sent = Payload(26);
    EXPECT_EQ(sent.size(), kScfgSize);
    sent.resize(c.bytes);
    EXPECT_EQ(sent, Bytes(scfg.begin(), scfg.begin() + static_cast<std::ptrdiff_t>(c.bytes))) << c.ring;
    EXPECT_EQ(Command(27).words, (Words{Command(27).words.at(0), Crc(scfg, 0, 0xE4)}));
  }
}

TEST(ScfgKeyRing, AKeyIsAnyEntryThatIsNotAllOnes) {
  for (const std::size_t byte : {0U, 43U}) {
    Bytes scfg = ScfgWith("k");
    scfg[kRingStart + kEntrySize + byte] = 0xFE;
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), 320U);
  }
}

TEST(ScfgKeyRing, ACopyTooShortForTheRingSurvives) {
  for (const std::size_t size : {0U, 1U, 231U, 232U, 276U, 1023U}) {
    Bytes scfg(size, 0xFF);
    ReduceScfgKeyRing(scfg);
    EXPECT_LE(scfg.size(), size);
  }
}

TEST_F(ScfgTest, TheCrcFieldIsRenewedOnRequestByThePartsOwnRange) {
  host.properties["ScfgOverwriteCrcsToggle"] = "1";
  const struct {
    Part part;
    std::size_t offset, length;
  } cases[] = {{Part::Serin, 0, 0xE4},
               {Part::CorvelHighPg1, 0, 0xE4},
               {Part::CorvelHighPg2, 4, 0xDC},
               {Part::CorvelHighNew, 4, 0xDC},
               {Part::CorvelMid, 4, 0xDC}};
  for (const auto& c : cases) {
    Be(c.part);
    const Bytes scfg = ScfgWith("k");
    EXPECT_EQ(LoadScfg(scfg), "ok");
    const std::size_t field = c.offset + c.length;
    const std::uint32_t crc = Crc(scfg, c.offset, c.length);
    EXPECT_EQ(WordAt(Payload(26), field), crc);
    EXPECT_EQ(Command(27).words.at(1), crc);
    const auto address = [](std::size_t offset) {
      return "0x" + Hex8(kScfg + static_cast<std::uint32_t>(offset));
    };
    EXPECT_EQ(Messages(), "Info Updating CRC32 field scfg.crc32 @ address " + address(field) +
                              ", based on data in the range [" + address(c.offset) + ", " +
                              address(field - 1) + "]. Value changes from 0x" + Hex8(WordAt(scfg, field)) +
                              " to 0x" + Hex8(crc));
  }
}

TEST_F(ScfgTest, TheCheckedRangeMustFitTheReducedCopy) {
  host.properties["scfg.crc32Info"] = "0x0:0x115";
  EXPECT_EQ(LoadScfg(ScfgWith("kk")), "ok");
  EXPECT_EQ(LoadScfg(ScfgWith("k")),
            "Offset and length defined in flash property \"scfg.crc32Info\" does not fit in SCFG");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{12, 17, 26}));  // programmed, not verified
}

// The field lies in the part that is cut off: it is renewed, cut off with the rest, and then not there to
// check.
TEST_F(ScfgTest, TheCrcFieldIsRenewedBeforeTheRingIsCut) {
  host.properties["ScfgOverwriteCrcsToggle"] = "1";
  host.properties["scfg.crc32Info"] = "0x0:0x3FC";
  EXPECT_EQ(LoadScfg(ScfgWith("k")),
            "Offset and length defined in flash property \"scfg.crc32Info\" does not fit in SCFG");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{12, 17, 26}));
  EXPECT_EQ(Command(26).Specific(), 276U);
}

TEST_F(ScfgTest, ASmallScfgIsProgrammedWhole) {
  host.properties["ScfgSize"] = "0x100";
  host.scfgSize = 0x100;
  EXPECT_EQ(LoadScfg(Bytes(0x100, 0xFF)), "ok");
  EXPECT_EQ(Command(26).Specific(), 0x100U);
}

}  // namespace
