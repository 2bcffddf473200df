#include "host/load/LoadRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "WireScript.h"
#include "host/load/LoadOutcome.h"
#include "host/report/Html.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

DeviceDescription SmallDevice() {
  DeviceDescription device;
  device.map.main = {0, 0x3000};
  device.map.sectorSize = 0x800;
  device.map.ccfg = {0x4C000000, 0x10};
  device.map.scfg = {0x4C001000, 0x10};
  device.map.ram = {0x20000000, 0x100};
  return device;
}

ImageBlock Block(Region region, std::uint32_t address, Bytes data) {
  const auto size = static_cast<std::uint32_t>(data.size());
  return {region, address, std::move(data), {{address, size}}};
}

// A block of each region, small and equal: m MAIN, c CCFG, s SCFG, r RAM.
LoadPlan PlanOf(std::string_view regions) {
  const std::map<char, std::pair<Region, std::uint32_t>> known = {{'m', {Region::Main, 0}},
                                                                  {'c', {Region::Ccfg, 0x4C000000}},
                                                                  {'s', {Region::Scfg, 0x4C001000}},
                                                                  {'r', {Region::Ram, 0x20000000}}};
  LoadPlan plan;
  for (const char region : regions)
    plan.blocks.push_back(Block(known.at(region).first, known.at(region).second, Bytes(16, 0x55)));
  return plan;
}

TEST(PlannedLoadTest, GathersTheRangesOfEachRegion) {
  LoadPlan plan;
  plan.blocks = {Block(Region::Main, 0x7FF, Bytes(2, 0xFF)), Block(Region::Main, 0x801, Bytes(0x7FF, 0xFF)),
                 Block(Region::Main, 0x2000, Bytes(0x800, 0)),
                 Block(Region::Ram, 0x20000000, {'1', '2', '3', '4', '5', '6', '7', '8', '9'})};
  const LoadRecord record = PlannedLoad(plan, {}, SmallDevice(), {});
  ASSERT_EQ(record.regions.size(), 2U);
  EXPECT_THAT(record.regions[0].ranges, ElementsAre(AddressRange{0x7FF, 0x801}, AddressRange{0x2000, 0x800}));
  EXPECT_EQ(record.regions[0].bytes, 0x1001U);
  EXPECT_EQ(record.regions[1].sectors, 0U);
  EXPECT_EQ(record.regions[1].crc, 0xCBF43926U);
}

// What the images hold, what the chip answers to the comparisons of MAIN, CCFG and SCFG that the plug-in
// makes until one fails, and what is told of it.
TEST(VerificationTest, ComparesAsFarAsThePluginGoes) {
  PropertyStore settings;
  settings.Set("ImageVerificationSetting", "1");
  const std::string text = "the plug-in's text", where = ", where the plug-in stops";
  const struct {
    std::string_view held, answers;  // 0 the same, 7 differs, 4 fails
    std::string outcomes;            // verified, differs, failed, not compared
    std::string told, note = "";
  } cases[] = {
      {"mcs", "000", "vvv", "ok"},
      {"mcsr", "000", "vvvn", "ok", "ram: not compared, no verification looks there"},
      {"m", "07", "v", "ok", "the images hold no ccfg; it was not compared"},
      {"mc", "007", "vv", "ok", "the images hold no scfg; it was not compared"},
      {"mcs", "7", "dnn", text},
      {"mcs", "07", "vdn", text},
      {"mcs", "004", "vvf", text},
      {"ms", "07", "vn", "scfg was not compared: the images hold no ccfg" + where},
      {"c", "", "n", "ccfg was not compared: the images hold no main" + where},
      {"m", "", "n", "main was not compared: the settings leave out all that the images hold of it"},
      {"r", "", "n", "nothing was compared: the images hold nothing of MAIN flash, CCFG or SCFG"},
  };
  for (const auto& c : cases) {
    SaciWatch watch;
    WireScript wire(watch);
    const std::vector<std::uint32_t> commands[] = {
        {0x00000010, 0, 0x800, 0}, {0x00010011, 0, 0, 0, 0}, {0x0001001B, 0}};
    LoadCourse course;
    for (std::size_t i = 0; i < c.answers.size(); ++i) {
      wire.Send(commands[i].front(), {commands[i].begin() + 1, commands[i].end()});
      const auto answer = static_cast<std::uint32_t>(c.answers[i] - '0');
      wire.Answer({(commands[i].front() & 0xFF) | (answer == 0 ? 0 : 0x80 | answer) << 16});
      if (answer != 0) course.error = text;
    }
    const DeviceDescription device = SmallDevice();
    const LoadPlan plan = PlanOf(c.held);
    course.blocksTaken = plan.blocks.size();
    LoadRecord record = PlannedLoad(plan, {}, device, settings);
    JudgeLoad(record, plan, device, watch, course);

    std::string outcomes;
    for (const RegionRecord& region : record.regions) outcomes += OutcomeText(region.outcome).front();
    EXPECT_EQ(outcomes, c.outcomes) << c.told << c.note;
    EXPECT_EQ(record.failure ? record.failure->text : "ok", c.told) << c.note;
    EXPECT_EQ(record.notes.empty() ? "" : record.notes.front(), c.note);
  }
}

TEST(LoadTextTest, TellsHowALoadWasInterrupted) {
  LoadRecord record;
  record.sectorSize = 0x800;
  record.failure.emplace();
  record.failure->text = "cancelled";
  record.failure->phase = Phase::ProgramMain;
  record.failure->region = Region::Main;
  record.failure->range = {0x8000, 0x8000};
  EXPECT_EQ(
      InterruptText(record),
      "interrupted while programming 0x00008000..0x0000ffff; the chip holds a part of the image: load again");
  record.failure->phase = Phase::Reset;
  EXPECT_EQ(InterruptText(record), "interrupted in phase \"reset\"; nothing on the chip was changed");
}

// What no reader of a page would see, or see as something else, and what is no UTF-8.
TEST(HtmlTest, ShowsWhatCanBeSeenAndReplacesTheRest) {
  const std::string seen =
      "\t\n "
      "~\u00A0\u061B\u061D\u07FF\u0800\u200D\u2010\u2027\u202F\u2065\u206A\uD7FF\uE000\uFDCF\uFDF0\uFEFE"
      "\uFF00"
      "\uFFFD\U00010000\U0001FFFD\U0010FFFD";
  EXPECT_EQ(html::Escaped(seen), seen);
  EXPECT_EQ(html::Escaped("a<b>&\"'"), "a&lt;b&gt;&amp;&quot;&#39;");
  const std::string hidden =
      "\x01\x08\x0B\x1F\x7F\u0080\u009F\u061C\u200E\u200F\u2028\u202E\u2066\u2069\uFEFF\uFDD0\uFDEF\uFFFE"
      "\uFFFF\U0001FFFE"
      "\U0010FFFF";
  const std::string broken =
      "\xFF\x80\xC1\xBF\xE0\x9F\xBF\xED\xA0\x80\xED\xBF\xBF\xF0\x8F\xBF\xBF\xF4\x90\x80\x80\xF8\x88\x80\x80"
      "\x80\xC2";
  std::string marks;
  for (std::size_t i = 0; i < 21 + broken.size(); ++i) marks += "\uFFFD";
  EXPECT_EQ(html::Escaped(hidden + broken), marks);
}

TEST(ProgressBarTest, SuitsEveryWidth) {
  const Progress half{Phase::ProgramMain, 51200, 102400, 500'000'000};
  const Progress large{Phase::ProgramMain, 51'200'000, 102'400'000, 500'000'000};
  const Progress over{Phase::Ccfg, 120000, 102400, 1'000'000'000};
  const struct {
    Progress progress;
    std::size_t width;
    std::string line;
  } cases[] = {
      {half, 200,
       "program       [####################                    ]  50%  0.5 s left  50.0 of 100.0 KiB  100 "
       "KiB/s"},
      {large, 95,
       "program       [###########            ]  50%  0.5 s left  50000.0 of 100000.0 KiB  100000 KiB/s"},
      {half, 71, "program       [####    ]  50%  0.5 s left  50.0 of 100.0 KiB  100 KiB/s"},
      {half, 41, "program       [####    ]  50%  0.5 s left"},
      {half, 40, "program        50%  0.5 s left"},
      {half, 10, " 50%"},
      {over, 60, "configuration [###########################] 100%  0.0 s left"},
      {{Phase::Erase, 0, 0, 0}, 40, "erase        "},
      {{Phase::Erase, 4, 102400, 1'000'000}, 40, "erase         [                   ]   0%"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ProgressBar::Line(c.progress, c.width), c.line);
    EXPECT_LE(ProgressBar::Line(c.progress, c.width).size(), c.width);
  }
}

}  // namespace
}  // namespace host
