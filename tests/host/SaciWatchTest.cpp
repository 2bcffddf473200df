#include "host/plugin/SaciWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "WireScript.h"

namespace host {
namespace {

using testing::ElementsAre;
using Words = std::vector<std::uint32_t>;

struct SaciWatchTest : testing::Test {
  SaciWatch watch;
  WireScript wire{watch};

  [[nodiscard]] const SaciExchange& Last() const { return watch.Exchanges().back(); }
};

// The worked example of docs/wire-format.md.
TEST_F(SaciWatchTest, ReadsWholeCommands) {
  wire.Call({.function = "ResetTarget", .value = 0});
  EXPECT_EQ(watch.Present(), Phase::Reset);
  wire.Send(0x00000001);
  wire.Answer({0x00000001});
  EXPECT_EQ(watch.Present(), Phase::Reset) << "a no-operation belongs to what is under way";

  wire.Send(0x00010109, {0x5C17E94B});
  EXPECT_EQ(watch.Present(), Phase::Erase);
  wire.Answer({0x02000109, 0x00000001, 0x80000000});
  EXPECT_THAT(Last().words, ElementsAre(1U, 0x80000000U));
  EXPECT_EQ(Last().argument, 1U);
  EXPECT_FALSE(Last().HasFailed());

  wire.Send(0x0000020F, {0x5C17E94B, 0x00000800});
  wire.Stream(Words(512, 0xFFFFFFFF));
  wire.Answer({0x0000020F});
  EXPECT_EQ(watch.Present(), Phase::ProgramMain);
  EXPECT_EQ(Last().MainRange(), (AddressRange{0x800, 2048}));
  EXPECT_EQ(Last().sectorsAcknowledged, 1U);

  wire.Send(0x00000310, {0x00000800, 0x00000800, 0x16CAD140});
  wire.Answer({0x00870310});
  EXPECT_EQ(watch.Present(), Phase::VerifyMain);
  EXPECT_EQ(Last().MainRange(), (AddressRange{0x800, 0x800}));
  EXPECT_EQ(Last().Result(), 0x87);
  EXPECT_TRUE(Last().Compares());
  EXPECT_EQ(watch.Exchanges().size(), 4U);
  EXPECT_EQ(watch.BytesWritten(), 4U * (1 + 2 + 3 + 512 + 4));
  EXPECT_GT(watch.NsOf(Phase::ProgramMain), 0U);
}

TEST_F(SaciWatchTest, TellsAnswersThatDoNotAnswer) {
  const struct {
    const char* what;
    Words answer;
    std::optional<std::uint8_t> result;
  } cases[] = {
      {"success", {0x0000070C}, 0},
      {"refusal", {0x0086070C}, 0x86},
      {"none", {}, {}},
      {"another command's", {0x0000070D}, {}},
      {"another number's", {0x0000080C}, {}},
      {"more words than there can be", {0x2100070C}, {}},
      {"words that never came", {0x0200070C, 1}, {}},
  };
  for (const auto& c : cases) {
    wire.Send(0x0000070C, {0x5C17E94B, 1, 2, 3});
    wire.Answer(c.answer);
    EXPECT_EQ(Last().Result(), c.result) << c.what;
    EXPECT_EQ(Last().HasFailed(), c.result != 0) << c.what;
    EXPECT_EQ(Last().dataBytes, 12U);
  }
  wire.Send(0x00000714);
  EXPECT_FALSE(Last().HasFailed()) << "a reset is acknowledged on request only";
  wire.Send(0x00010714);
  EXPECT_TRUE(Last().HasFailed());
  wire.Call({.function = "WriteReg", .address = WireScript::kResetControl, .value = 0x5C});
  wire.Answer({0x00000714});
  EXPECT_TRUE(Last().HasFailed()) << "no answer comes across a reset";
  EXPECT_TRUE(watch.Resets().back().intoSaci);
}

TEST_F(SaciWatchTest, CountsAcknowledgementsAcrossTheWrapAndPastALostOne) {
  const auto transfer = [&](const Words& answers) {
    wire.Send(0x0000FE0F, {0x5C17E94B, 0});
    wire.Stream(Words(8 * 512));
    wire.Answer(answers);
    return std::pair(Last().sectorsAcknowledged, Last().Result());
  };
  using Told = std::pair<std::uint32_t, std::optional<std::uint8_t>>;
  EXPECT_EQ(transfer({0x0000FE0F, 0x0000FF0F, 0x0000000F, 0x0000010F}), Told(4, 0));
  EXPECT_EQ(transfer({0x0000FF0F, 0x0000000F}), Told(3, 0))
      << "the first was lost, the second vouches for it";
  EXPECT_EQ(transfer({0x0000FE0F, 0x0084FF0F}), Told(1, 0x84)) << "the second sector was refused";
  EXPECT_EQ(transfer({0x0000FE0F, 0x0000050F}), Told(1, std::nullopt));
}

TEST_F(SaciWatchTest, HoldsWhatIsReadBackAgainstWhatWasWritten) {
  wire.Memory("WriteMemory", 0x20000000, {1, 2, 3});
  EXPECT_EQ(watch.Present(), Phase::Ram);
  wire.Memory("ReadMemory", 0x20000000, {1, 2, 3});
  EXPECT_EQ(watch.Accesses().back().equalsWritten, true);
  wire.Memory("WriteMemory", 0x20000000, {1, 2, 3});
  wire.Memory("ReadMemory", 0x20000000, {1, 0, 3});
  EXPECT_EQ(watch.Accesses().back().equalsWritten, false);
  wire.Memory("ReadMemory", 0x20000000, {1, 2, 3});
  EXPECT_EQ(watch.Accesses().back().equalsWritten, std::nullopt) << "nothing was written right before";
  wire.Memory("WriteMemory", 0x20000000, {}, "bus error");
  EXPECT_TRUE(watch.Accesses().back().hasFailed);
}

TEST_F(SaciWatchTest, SurvivesNonsenseWithinBounds) {
  std::mt19937 random(1);
  for (int i = 0; i < 300'000; ++i) {
    if (random() % 3 == 0)
      wire.Send(static_cast<std::uint32_t>(random()),
                Words(random() % 3, static_cast<std::uint32_t>(random())));
    else if (random() % 2 == 0)
      wire.Answer({static_cast<std::uint32_t>(random())});
    else
      wire.Memory(random() % 2 == 0 ? "ReadMemory" : "WriteMemory", random(), {1, 2, 3});
  }
  EXPECT_TRUE(watch.IsIncomplete());
  EXPECT_LE(watch.Exchanges().size(), 100'000U);
}

}  // namespace
}  // namespace host
