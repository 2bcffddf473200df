#include <gtest/gtest.h>

#include <algorithm>

#include "TestChip.h"
#include "simulator/Crc32.h"

namespace simulator {
namespace {

struct ConfigurationTest : testing::Test {
  Words ProgramCcfg(const Bytes& ccfg, std::uint32_t header = 0x0000'010C) {
    return target.Command(Joined({header, kKey}, AsWords(ccfg)));
  }
  TestChip target;
};

TEST_F(ConfigurationTest, ComparesEachGivenCrcWithTheFlash) {
  const Bytes ccfg = ValidCcfg(kOpen);
  ProgramCcfg(ccfg);
  // What the ROM computes, in the order of the command.
  Words right;
  for (const ByteRange range : {ByteRange{0x00, 0x0C}, {0x10, 0x4C}, {0x60, 0x1C}, {0x80, 0x7C}})
    right.push_back(Crc32(std::span(ccfg).subspan(range.offset, range.length)));
  EXPECT_EQ(target.Command(Joined({0x0001'0111}, right)), (Words{0x0000'0111}));
  for (std::size_t i = 0; i < 4; ++i) {
    Words wrong = right;
    wrong[i] ^= 0x8000'0000;
    EXPECT_EQ(target.Command(Joined({0x0001'0211}, wrong)), (Words{0x0087'0211})) << i;
    const std::uint32_t skipped = i == 2 ? 0x0000'0311 : 0x0087'0311;
    EXPECT_EQ(target.Command(Joined({0x0003'0311}, wrong)), (Words{skipped})) << i << ", record skipped";
  }
}

TEST_F(ConfigurationTest, WithoutGivenCrcsTheUserRecordIsHeldAgainstItsOwnWord) {
  ProgramCcfg(ValidCcfg(kOpen), 0x0001'010C);
  EXPECT_EQ(target.Command({0x0000'0211, 0, 0, 0, 0}), (Words{0x0087'0211})) << "blank record";
  EXPECT_EQ(target.Command({0x0002'0311, 0, 0, 0, 0}), (Words{0x0000'0311})) << "check skipped";
  ProgramCcfg(ValidCcfg(kOpen));
  EXPECT_EQ(target.Command({0x0000'0411, 0, 0, 0, 0}), (Words{0x0000'0411}));
}

TEST_F(ConfigurationTest, CcfgBlankCheckSeesTheUserRecordToo) {
  EXPECT_EQ(target.Command({0x8000'0111, 0, 0, 0, 0}), (Words{0x0000'0111}));
  target.Command({0x0000'020D, kKey, 0xFFFF'FFFE, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u, ~0u});
  EXPECT_EQ(target.Command({0x8000'0311, 0, 0, 0, 0}), (Words{0x0089'0311}));
}

TEST_F(ConfigurationTest, ScfgTakesTheStatedBytesOfTheSector) {
  const Words sector(16, 0x0102'0304);
  EXPECT_EQ(target.Command(Joined({0x0022'011A, kKey}, sector)), (Words{0x0000'011A}));
  Bytes expected(0x40, 0xFF);
  for (unsigned i = 0; i < 0x22; ++i) expected[i] = static_cast<std::uint8_t>(4 - i % 4);
  EXPECT_EQ(target.Contents().scfg, expected);
}

TEST_F(ConfigurationTest, ScfgIsVerifiedAgainstTheGivenCrcOrItsOwnWord) {
  Bytes scfg(0x40, 0x33);
  SealCrc(scfg, {0x00, 0x1C});
  target.Command(Joined({0x0040'011A, kKey}, AsWords(scfg)));
  const std::uint32_t crc = AsWords(scfg)[7];
  EXPECT_EQ(target.Command({0x0001'021B, crc}), (Words{0x0000'021B}));
  EXPECT_EQ(target.Command({0x0001'031B, crc ^ 1}), (Words{0x0087'031B}));
  EXPECT_EQ(target.Command({0x0000'041B, 0}), (Words{0x0000'041B}));
}

TEST_F(ConfigurationTest, OtpIsWrittenOnce) {
  Words otp(512, 0);
  otp[0] = 0x1234'5678;
  const auto program = [&](std::uint32_t header) { return target.Command(Joined({header, kKey}, otp)); };
  EXPECT_EQ(program(0x0006'0119), (Words{0x0000'0119}));
  const Bytes written = target.Contents().otp;
  Bytes expected(0x20, 0xFF);
  const Bytes bytes = {0x78, 0x56, 0x34, 0x12, 0, 0};
  std::ranges::copy(bytes, expected.begin());
  EXPECT_EQ(written, expected);

  EXPECT_EQ(program(0x0006'0219), (Words{0x0000'0219})) << "the same once more";
  otp[0] = 0x1234'5670;  // would only clear bits
  EXPECT_EQ(program(0x0020'0319), (Words{0x0084'0319}));
  EXPECT_EQ(target.Contents().otp, written) << "refused as a whole";
  target.Command({0x0000'0409, kKey});
  EXPECT_EQ(target.Contents().otp, written) << "chip erase does not reach OTP";
}

TEST_F(ConfigurationTest, CountsTheWritesToEachMemory) {
  const Words otp(512, 0);
  target.Command(Joined({0x0000'010D, kKey}, Words(8, 0)));
  target.Command(Joined({0x0010'021A, kKey}, Words(16, 0)));
  target.Command(Joined({0x0004'0319, kKey}, otp));
  target.Command(Joined({0x0004'0419, kKey ^ 1}, otp));
  target.ports.WriteMemory(0x2000'0000, Bytes{1});
  target.ports.WriteMemory(0x2000'0000, Bytes{1});
  const WriteCounts& writes = target.chip.Writes();
  EXPECT_EQ((Words{writes.ccfg, writes.scfg, writes.otp, writes.ram}), (Words{1, 1, 1, 2}));
}

}  // namespace
}  // namespace simulator
