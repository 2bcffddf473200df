// What plays/configuration.play does not show: stores and key rings of any size.

#include "ConfigurationStore.h"
#include "Crc32.h"
#include "DeviceTest.h"
#include "ErrorOf.h"
#include "ScfgKeyRing.h"

namespace {

TEST(Crc32, AnswersThePublishedCheckValue) {
  const std::string digits = "123456789";
  EXPECT_EQ(CalcCRC32(reinterpret_cast<const std::uint8_t*>(digits.data()), 9), 0xCBF43926U);
}

// A store of four bytes 0 that stands for address 0x100.
TEST(ConfigurationStore, TakesWhatFits) {
  const struct {
    std::uint32_t address;
    Bytes data, store;
  } rows[] = {{0x100, {1, 2, 3, 4}, {1, 2, 3, 4}}, {0x102, {5}, {0, 0, 5, 0}},
              {0x103, {6, 7, 8}, {0, 0, 0, 6}},    {0x104, {9}, {0, 0, 0, 0}},
              {0x101, {}, {0, 0, 0, 0}},           {0xFFFFFFFF, {9}, {0, 0, 0, 0}},
              {0x0FF, {1, 2}, {0, 0, 0, 0}},       {0x100, {1, 2, 3, 4, 5}, {1, 2, 3, 4}}};
  for (const auto& row : rows) {
    Bytes store(4);
    EXPECT_EQ(ErrorOf([&] { CopyIntoStore(store, 0x100, row.data, row.address); }),
              row.address < 0x100 ? "Image data at 0x000000FF lies below its region" : "ok");
    EXPECT_EQ(store, row.store) << std::hex << row.address;
  }
}

TEST(ScfgKeyRing, AKeyIsAnyEntryThatIsNotAllOnes) {
  for (const std::size_t byte : {276U, 319U}) {  // the second entry's first and last
    Bytes scfg(kScfgSize, 0xFF);
    scfg[232] = 0;
    scfg[byte] = 0xFE;
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), 320U);
  }
  for (const std::size_t size : {0U, 1U, 231U, 232U, 276U, 1023U}) {  // too short for the ring
    Bytes scfg(size, 0xFF);
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), size);
  }
}

}  // namespace
