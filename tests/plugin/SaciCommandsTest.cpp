// Every command: the words it sends, and what it does with its answer.

#include <cstring>
#include <functional>

#include "ChannelTest.h"
#include "DeviceTest.h"

namespace {

// Head words, then the bytes, which fit, then zeroes up to `size` words in all.
Words Framed(Words words, const Bytes& data, std::size_t size) {
  const std::size_t head = words.size();
  words.resize(size);
  if (!data.empty()) std::memcpy(words.data() + head, data.data(), data.size());
  return words;
}

struct SaciCommandsTest : ChannelTest {
  SaciCommandsTest() { saci.setScfgSize(1024); }
};

TEST_F(SaciCommandsTest, EachCommandIsTheseWords) {
  constexpr std::uint32_t kKey = 0x5C17E94B;
  const Bytes bytes64 = Pattern(64);
  const std::string characters64(bytes64.begin(), bytes64.end());
  Words retained = {7, 8};
  const struct {
    std::function<std::uint8_t()> send;
    Words words;  // with sequence number 0
  } rows[] = {
      {[&] { return saci.Nop(); }, {1}},
      {[&] { return saci.ExitSaciHalt(); }, {7}},
      {[&] { return saci.ExitSaciShutdown(); }, {8}},
      {[&] { return saci.ExitSaciRun(); }, {21}},
      {[&] { return saci.ResetDevice(true); }, {0x00010014}},
      {[&] { return saci.SubmitAuth("abcde", false); }, {0x00020006, 0x64636261, 0x00000065}},
      {[&] { return saci.SubmitAuth("0A1B", false); }, {0x00010006, 0x42314130}},
      {[&] { return saci.SubmitAuth("0A1", true); }, {0x00010006, 0x0000010A}},
      {[&] { return saci.SubmitAuth("", false); }, {0x00000006}},
      {[&] { return saci.SubmitAuth(characters64, false); }, Framed({0x00100006}, bytes64, 17)},
      {[&] { return saci.SubmitAuth(characters64 + "gh", false); }, Framed({0x00110006}, bytes64, 17)},
      {[&] { return saci.EraseChip(false, false, &retained); }, {0x00000009, kKey}},
      {[&] { return saci.EraseChip(true, false, &retained); }, {0x00010009, kKey}},
      {[&] { return saci.EraseChip(true, true, &retained); }, {0x0001001C, kKey}},
      {[&] { return saci.EraseChip(false, true, nullptr); }, {0x0000001C, kKey}},
      {[&] { return saci.ProgCcfgSector(Pattern(2048), true); },
       Framed({0x0001000C, kKey}, Pattern(2048), 514)},
      {[&] { return saci.ProgCcfgSector(Pattern(5), false); }, Framed({0x0000000C, kKey}, Pattern(5), 514)},
      {[&] { return saci.ProgCcfgSector(Pattern(2052), false); },
       Framed({0x0000000C, kKey}, Pattern(2048), 514)},
      {[&] { return saci.ProgCcfgUserRecord(Pattern(128)); }, Framed({0x0000000D, kKey}, Pattern(128), 34)},
      {[&] { return saci.ProgCcfgUserRecord(Pattern(129)); }, Framed({0x0000000D, kKey}, Pattern(128), 34)},
      {[&] { return saci.ProgScfgSector(Pattern(1024)); }, Framed({0x0400001A, kKey}, Pattern(1024), 258)},
      {[&] { return saci.ProgScfgSector({}); }, Framed({0x0000001A, kKey}, {}, 258)},
      {[&] { return saci.ProgScfgSector(Pattern(1028)); }, Framed({0x0404001A, kKey}, Pattern(1024), 258)},
      {[&] { return saci.ProgOtpSector(Pattern(8)); }, Framed({0x00080019, kKey}, Pattern(8), 514)},
      {[&] { return saci.ProgOtpSector(Pattern(1)); }, Framed({0x00010019, kKey}, Pattern(1), 514)},
      {[&] { return saci.ProgOtpSector(Pattern(2049)); }, Framed({0x08010019, kKey}, Pattern(2048), 514)},
      {[&] { return saci.ProgMainSector(0x12345678, Pattern(16)); },
       Framed({0x0010000E, kKey, 0x12345678}, Pattern(16), 7)},
      {[&] { return saci.ProgMainSector(0, Pattern(17)); }, Framed({0x0011000E, kKey, 0}, Pattern(17), 8)},
      {[&] { return saci.ProgMainSector(0x800, Pattern(2048)); },
       Framed({0x0800000E, kKey, 0x800}, Pattern(2048), 515)},
      {[&] { return saci.ProgMainSector(0x800, Pattern(2049)); },
       Framed({0x0801000E, kKey, 0x800}, Pattern(2048), 515)},
      {[&] { return saci.VerifyMainSectors(0x800, 0x1000, 0xCBF43926, false); },
       {0x00000010, 0x800, 0x1000, 0xCBF43926}},
      {[&] { return saci.VerifyMainSectors(0, 0x80000, 0, true); }, {0x80000010, 0, 0x80000, 0}},
      {[&] { return saci.VerifyCcfgSector(true, false, false, 1, 2, 3, 4); }, {0x00010011, 1, 2, 3, 4}},
      {[&] { return saci.VerifyCcfgSector(false, true, false, 1, 2, 3, 4); }, {0x00020011, 1, 2, 3, 4}},
      {[&] { return saci.VerifyCcfgSector(false, false, true, 0, 0, 0, 0); }, {0x80000011, 0, 0, 0, 0}},
      {[&] { return saci.VerifyScfgSector(true, 0xCBF43926); }, {0x0001001B, 0xCBF43926}},
      {[&] { return saci.VerifyScfgSector(false, 9); }, {0x0000001B, 9}},
  };
  for (const auto& row : rows) {
    for (const std::uint8_t result : Bytes{0x00, 0x84}) {  // a refusal is returned, not thrown
      StartAt(0);
      host.ReplyOnce(static_cast<std::uint8_t>(row.words[0]), {.result = result});
      EXPECT_EQ(row.send(), result) << std::hex << row.words[0];
      EXPECT_EQ(host.commands.at(0).words, row.words) << std::hex << row.words[0];
    }
  }
}

TEST_F(SaciCommandsTest, ConfigurationCommandsHaveTheConfiguredSize) {
  host.Set("CcfgSize=400; CcfgUserRecordSize=40; ScfgSize=200; SectorSize=100");
  saci.setCcfgSize(1024);
  saci.setCcfgUserRecordSize(64);
  saci.setScfgSize(512);
  saci.setMainSectorSize(256);
  saci.ProgCcfgSector(Pattern(2048), true);
  saci.ProgCcfgUserRecord(Pattern(8));
  saci.ProgScfgSector(Pattern(8));
  saci.ProgMainSector(0, Pattern(512));
  saci.ProgOtpSector(Pattern(8));
  std::vector<std::size_t> sizes;
  for (const SaciCommand& command : host.commands) sizes.push_back(command.words.size());
  EXPECT_EQ(sizes, (std::vector<std::size_t>{258, 18, 130, 67, 514}));
}

TEST_F(SaciCommandsTest, IdsWithoutASenderHaveTheirSizeToo) {
  const struct {
    unsigned first, last;
    std::uint32_t words;
  } rows[] = {{0, 5, 1},   {7, 8, 1},   {10, 11, 1}, {18, 18, 5}, {19, 19, 9},
              {20, 21, 1}, {22, 22, 9}, {23, 24, 1}, {29, 32, 1}, {34, 255, 1}};
  for (const auto& row : rows) {
    for (unsigned id = row.first; id <= row.last; ++id) {
      SACI_PARAM_T command;
      command.common = {static_cast<std::uint8_t>(id), 0, 0xFFFF};
      EXPECT_EQ(saci.GetCmdWordCount(command), row.words) << id;
    }
  }
}

TEST_F(SaciCommandsTest, APasswordIdIsExactlyTwoWords) {
  for (const Words& data : {Words{0x89ABCDEF, 0x01234567}, Words{}, Words{1}, Words{1, 2, 3}}) {
    bool hasId = data.size() != 2;
    std::uint64_t id = 77;
    host.ReplyOnce(5, {.result = 0x86, .data = data});
    EXPECT_EQ(saci.ReqPasswordId(hasId, id), 0x86);
    EXPECT_EQ(hasId, data.size() == 2);
    EXPECT_EQ(id, hasId ? 0x0123456789ABCDEF : 77);
  }
  EXPECT_EQ(host.commands[0].words, Words{0x00000005});
}

}  // namespace
