#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "host/device/DeviceDescription.h"
#include "host/probe/AdiProbe.h"
#include "host/probe/TcpStream.h"
#include "host/probe/cmsisdap/CmsisDap.h"
#include "host/probe/simulated/SimulatedBoard.h"
#include "tests/support/ErrorOf.h"
#include "tests/support/SpoiledLink.h"

namespace {

using namespace host;
using Kind = ProbeError::Kind;

const DeviceDescription& Device() {
  const static DeviceDescription device = ReadDeviceDescription(TOVIK_SOURCE_DIR "/devices/serin-s20.xml");
  return device;
}

// What a probe that answers wrongly is told to be, and that the session goes on once it answers rightly.
struct SpoiledAnswerTest : testing::Test {
  void Reach() {
    if (!probe) {
      auto packets = std::make_unique<CmsisDap>(std::make_unique<SpoiledLink>(board.Target(), spoiler));
      probe = std::make_unique<AdiProbe>(std::move(packets), Device().ports);
    }
    probe->Connect(Core::DebugPort);
    (void)probe->ReadRegister(probe->FindRegister("CFGAP_DEVICESTATUS").value());
    probe->PushWords(std::vector<std::uint32_t>(8));
    probe->PinReset();
  }

  SimulatedBoard board{Device(), {}};
  SpoiledLink::Spoiler spoiler;
  std::unique_ptr<AdiProbe> probe;
};

TEST_F(SpoiledAnswerTest, IsToldAsWhatItIs) {
  constexpr std::uint8_t kInfo = 0, kConnect = 2, kTransfer = 5, kBlock = 6, kPins = 0x10, kClock = 0x11,
                         kSequence = 0x12;
  const std::string update = ": update the probe's firmware",
                    takeOut = ": unplug the probe and plug it in again",
                    power = ": see to its power and to the wires", dap = "the debug probe ",
                    chip = "the chip ", at1 = "register 0x08 of access port 1",
                    asked = " asked of it" + takeOut,
                    sticky = " (FAULT, STICKYORUN STICKYCMP STICKYERR WDATAERR)";
  using enum ProbeError::Kind;
  const struct {
    std::uint8_t command;
    unsigned nth;                                             // of its answers; 0: each that has these bytes
    std::vector<std::pair<std::size_t, std::uint8_t>> bytes;  // to set; none: the answer is lost
    Kind kind;
    std::string text;
    std::uint8_t status = 0;  // bits of CTRL/STAT, which the next answer tells
  } cases[] = {
      {kInfo, 4, {{2, 0}, {3, 0}}, BadAnswer, dap + "says that its packets have 0 bytes" + update},
      {kInfo, 4, {{2, 255}, {3, 255}}, BadAnswer, dap + "says that its packets have 65535 bytes"},
      {kInfo, 4, {{2, 63}, {3, 0}}, BadAnswer, dap + "says that its packets have 63 bytes"},
      {kInfo, 4, {{2, 1}, {3, 128}}, BadAnswer, dap + "says that its packets have 32769 bytes"},
      {kInfo, 6, {{2, 0}}, NoProbe, dap + "has no serial wire: take one that has"},
      {kConnect, 1, {{1, 0}}, NoProbe, dap + "cannot switch to its serial wire: take another one"},
      {kConnect, 1, {{0, 0xFF}}, BadAnswer, dap + "does not know CMSIS-DAP's command 0x02" + update},
      {kClock, 1, {{1, 0xFF}}, BadAnswer, dap + "refuses CMSIS-DAP's command 0x11" + update},
      {kSequence, 1, {{0, 0x13}}, BadAnswer, dap + "answered 0x12 with 0x13" + takeOut},
      {kTransfer, 0, {{1, 0}, {2, 7}}, NoTarget, chip + "does not answer the debug probe" + power},
      {kTransfer, 0, {{6, 0}}, NoTarget, chip + "does not power up its debug port: turn the chip off and"},
      {kTransfer, 0, {{6, 0x80}}, NoTarget, chip + "does not power up its debug port"},
      {kTransfer, 8, {{1, 0}, {2, 7}}, NoTarget, chip + "does not answer at " + at1 + power},
      {kTransfer, 8, {{1, 0}, {2, 2}}, Wait, chip + "is busy with " + at1 + " for too long (WAIT)"},
      {kTransfer, 8, {{1, 0}, {2, 4}}, Fault, chip + "refuses " + at1 + " (FAULT, no sticky bit)"},
      {kTransfer, 8, {{1, 0}, {2, 4}}, Fault, chip + "refuses " + at1 + sticky, 0xB2},
      {kTransfer, 8, {{1, 1}}, BadAnswer, dap + "made 1 transfers of 2 and tells no reason" + update},
      {kTransfer, 8, {{1, 9}}, BadAnswer, dap + "answered for 9 transfers where 2 were" + asked},
      {kTransfer, 8, {}, TimedOut, dap + "does not answer: unplug it and plug it in again"},
      {kBlock, 1, {{1, 7}}, BadAnswer, dap + "made 7 transfers of 8"},
      // The last write is the one that failed.
      {kBlock, 1, {{3, 4}}, Fault, chip + "refuses register 0x00 of access port 2 (FAULT,"},
      {kPins, 2, {{1, 0}}, NoTarget, chip.substr(0, 8) + "'s reset pin stays low: see what else holds it"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    unsigned seen = 0;
    spoiler = [&](Packet& answer) {
      if (answer[0] != c.command) return true;
      if (++seen == c.nth + 1 && c.status != 0) answer.at(3) = c.status;
      for (const auto& [at, value] : c.bytes)
        if (seen == c.nth || (c.nth == 0 && answer.size() > at)) answer[at] = value;
      return seen != c.nth || !c.bytes.empty();
    };
    probe.reset();
    try {
      Reach();
      ADD_FAILURE() << "nothing was noticed";
    } catch (const ProbeError& error) {
      EXPECT_THAT(error.what(), testing::StartsWith(c.text));
      EXPECT_EQ(error.Which(), c.kind);
    }
    spoiler = nullptr;
    EXPECT_NO_THROW(Reach());
  }
}

// Every answer of the way there cut at every place: told, or not needed.
TEST_F(SpoiledAnswerTest, MayBeCutAnywhere) {
  for (std::size_t length = 0; length < 12; ++length) {
    unsigned cut = 0;
    for (unsigned nth = 1;; ++nth) {
      unsigned seen = 0;
      spoiler = [&](Packet& answer) {
        if (++seen == nth && answer.size() > length) answer.resize(length), ++cut;
        return true;
      };
      probe.reset();
      try {
        Reach();
      } catch (const ProbeError& error) {
        EXPECT_EQ(error.Which(), Kind::BadAnswer);
        EXPECT_STREQ(error.what(),
                     "the debug probe's answer is cut short: unplug the probe and plug it in again");
      }
      const bool wasLast = seen < nth;
      spoiler = nullptr;
      EXPECT_NO_THROW(Reach()) << "answer " << nth << " cut to " << length;
      if (wasLast) break;
    }
    EXPECT_GT(cut, 0U) << length;
  }
}

TEST(CmsisDapTest, FindsTheDebugPortWhateverItListensTo) {
  SimulatedBoard board(Device(), {});
  const SpoiledLink::Spoiler none;
  auto link = std::make_unique<SpoiledLink>(board.Target(), none);
  // To the serial wire, and to sleep.
  for (const Packet& packet : {Packet{2, 1}, Packet{0x12, 72, 255, 255, 255, 255, 255, 255, 255, 0x9E, 0xE7},
                               Packet{0x12, 72, 255, 255, 255, 255, 255, 255, 255, 0xBC, 0xE3}}) {
    link->Send(packet);
    ASSERT_EQ(link->Receive(std::chrono::seconds(1)).value().at(0), packet[0]);
  }
  CmsisDap dap(std::move(link));
  dap.Connect();
  EXPECT_EQ(dap.ReadAp({1, 0}), 0x2B7A'10A1U);
}

// A word that is there early lets a block return with packets in flight. When the last one fails, the next
// operation says so in the block's name, but for those that begin anew; and the one after goes on.
TEST(ReadAheadTest, TellsOfAFailureAfterTheBlockHasReturned) {
  const ApRegister txData{2, 0}, txFlags{2, 4}, rxData{2, 8}, rxFlags{2, 12}, reset{2, 16};
  const struct {
    const char* next;
    std::function<void(CmsisDap&)> run;
    bool tells;
  } cases[] = {
      {"read", [&](CmsisDap& dap) { (void)dap.ReadAp(rxFlags); }, true},
      {"block", [&](CmsisDap& dap) { dap.WriteApBlock(rxData, {}); }, true},
      {"another look",
       [&](CmsisDap& dap) {
         (void)dap.WriteApBlockAndFetch(txData, std::vector<std::uint32_t>(512), {rxFlags, 1, rxData});
       },
       true},
      {"connection", [](CmsisDap& dap) { dap.Connect(); }, false},
      {"reset", [](CmsisDap& dap) { dap.SetResetPin(true); }, false},
      {"nothing", [](CmsisDap& dap) { dap.AwaitSent(); }, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.next);
    SimulatedBoard board(Device(), {});
    SpoiledLink::Spoiler spoiler;
    CmsisDap dap(std::make_unique<SpoiledLink>(board.Target(), spoiler));
    dap.Connect();
    dap.WriteAp(reset, 0x5C, AfterWrite::MayBeSilent);
    dap.Sleep(10);
    dap.Connect();
    dap.WriteAp(txFlags, 2, AfterWrite::Answers);
    dap.WriteApBlock(txData, std::vector<std::uint32_t>{1});  // no operation
    dap.WriteAp(txFlags, 0, AfterWrite::Answers);
    int blocks = 0;
    spoiler = [&](Packet& answer) {
      if (answer[0] == 6 && ++blocks == 5) answer[3] = 4;
      return true;
    };
    const auto fetched =
        dap.WriteApBlockAndFetch(txData, std::vector<std::uint32_t>(512), {rxFlags, 1, rxData});
    ASSERT_TRUE(fetched);
    EXPECT_EQ(fetched->word, 1U);
    EXPECT_LT(blocks, 5);
    EXPECT_EQ(ErrorOf([&] { c.run(dap); }),
              c.tells
                  ? "the chip refuses register 0x00 of access port 2 (FAULT, no sticky bit): reset the chip"
                  : "ok");
    EXPECT_NO_THROW((void)dap.ReadAp(rxFlags));
  }
}

// Registers that count how often they were read, and a word on offer behind every block.
struct CountingAccess final : ApAccess {
  void Connect() override { ++connects; }
  void Close() noexcept override {}
  std::uint32_t ReadAp(ApRegister) override {
    if (const auto kind = std::exchange(refusal, std::nullopt)) throw ProbeError(*kind, "no");
    return ++reads;
  }
  void WriteAp(ApRegister, std::uint32_t, AfterWrite) override {}
  void ReadApBlock(ApRegister, std::span<std::uint32_t> words) override {
    for (std::uint32_t& word : words) word = ++reads;
  }
  void WriteApBlock(ApRegister, std::span<const std::uint32_t>) override {}
  std::optional<Fetched> WriteApBlockAndFetch(ApRegister, std::span<const std::uint32_t>,
                                              const Offer&) override {
    return Fetched{.flags = 0x101, .word = 0xF00D};
  }
  void SetResetPin(bool) override {}
  void Sleep(std::uint32_t) override {}
  [[nodiscard]] Traffic Counted() const override { return {}; }

  std::uint32_t reads = 0, connects = 0;
  std::optional<Kind> refusal;
};

TEST(AdiProbeTest, ConnectsAnewToAChipThatHadFallenSilent) {
  auto owned = std::make_unique<CountingAccess>();
  CountingAccess& access = *owned;
  AdiProbe probe(std::move(owned), Device().ports);
  const auto read = [&] { return ErrorOf([&] { (void)probe.ReadRegister(0x1'0008); }); };
  for (const auto& [refusal, connects] : {std::pair(Kind::Fault, 0U), {Kind::NoTarget, 1U}}) {
    access.refusal = refusal;
    EXPECT_EQ(read(), "no");
    EXPECT_EQ(read(), "ok");
    EXPECT_EQ(access.connects, connects);
  }
  EXPECT_EQ(ErrorOf([&] { (void)probe.ReadRegister(9); }), "No register at address 0x00000009");
}

TEST(ReadAheadTest, HandsOutAFetchedWordOnceUnlessItIsDropped) {
  auto owned = std::make_unique<CountingAccess>();
  CountingAccess& access = *owned;
  AdiProbe probe(std::move(owned), Device().ports);
  const std::uint32_t flags = probe.FindRegister("SECAP_RXCTL").value();
  const std::uint32_t reset = probe.FindRegister("SECAP_RSTCTL").value();
  probe.Connect(Core::DebugPort);
  std::uint32_t word = 0;
  const auto pop = [&] { return probe.PopWords({&word, 1}), word; };

  probe.PushWords({&word, 1});
  EXPECT_EQ(probe.ReadRegister(flags), 0x101U);
  EXPECT_EQ(probe.ReadRegister(flags), 1U | 1U) << "a second look is a true one, and still shows the word";
  EXPECT_EQ(pop(), 0xF00DU);
  EXPECT_EQ(pop(), 2U);
  EXPECT_EQ(probe.ReadRegister(flags), 3U);

  const std::function<void()> droppers[] = {[&] { probe.PinReset(); },
                                            [&] { probe.WriteRegister(reset, 0x5C); },
                                            [&] { probe.Connect(Core::DebugPort); }};
  for (const auto& drop : droppers) {
    probe.PushWords({&word, 1});
    drop();
    EXPECT_EQ(pop(), access.reads);
  }
}

// Across the borders of packets and of the pages in which an address counts up, in every width.
TEST(MemoryPortTest, MovesWholeElementsWithinTheAddressesThereAre) {
  SimulatedBoard board(Device(), {});
  const SpoiledLink::Spoiler none;
  AdiProbe probe(std::make_unique<CmsisDap>(std::make_unique<SpoiledLink>(board.Target(), none)),
                 Device().ports);
  probe.Connect(Core::Cortex);
  std::vector<std::uint8_t> bytes(2100), read(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  for (const std::size_t width : {1U, 2U, 4U}) {
    const auto at = static_cast<std::uint32_t>(0x2000'0400 - width);
    std::rotate(bytes.begin(), bytes.begin() + 1, bytes.end());
    probe.WriteMemory(at, bytes, width);
    for (const std::size_t other : {1U, 2U, 4U}) {
      if (at % other != 0) continue;
      probe.ReadMemory(at, read, other);
      EXPECT_EQ(read, bytes) << width << " and " << other;
    }
  }
  const std::tuple<std::uint32_t, std::size_t, std::size_t, const char*> refused[] = {
      {0x2000'0000, 4, 8, "access width of 8 bytes is not offered"},
      {0x2000'0001, 2, 2, "2 bytes at 0x20000001 are no whole elements of 2 bytes"},
      {0x2000'0000, 6, 4, "6 bytes at 0x20000000 are no whole elements of 4 bytes"},
      {0xFFFF'FFFC, 8, 4, "8 bytes at 0xfffffffc leave the 32-bit addresses"}};
  for (const auto& [at, size, width, error] : refused)
    EXPECT_EQ(ErrorOf([&, a = at, n = size, w = width] { probe.ReadMemory(a, std::span(read).first(n), w); }),
              error);
  EXPECT_THAT(ErrorOf([&] { probe.ReadMemory(0xFFFF'FFFF, std::span(read).first(1), 1); }),
              testing::StartsWith("0xffffffff..0xffffffff cannot be read: the chip refuses register 0x0c"));
}

TEST(TcpAddressTest, IsAHostAndMaybeAPort) {
  const struct {
    const char* text;
    const char* told;
  } cases[] = {{"a", "a 7"},           {"a:1", "a 1"},         {"a:65535", "a 65535"}, {"[::1]", "::1 7"},
               {"[::1]:80", "::1 80"}, {"", "refused"},        {":1", "refused"},      {"a:", "refused"},
               {"a:0", "refused"},     {"a:65536", "refused"}, {"a:1x", "refused"},    {"[::1", "refused"},
               {"[]:1", "refused"},    {"[::1]80", "refused"}};
  for (const auto& c : cases) {
    std::string told = "refused";
    const std::string error = ErrorOf([&] {
      const TcpAddress address = ParseTcpAddress(c.text, 7);
      told = address.host + " " + std::to_string(address.port);
    });
    EXPECT_EQ(told, c.told) << c.text;
    EXPECT_EQ(error, told != "refused" ? "ok"
                                       : "\"" + std::string(c.text) +
                                             "\" is no address: HOST, HOST:PORT or [ADDRESS]:PORT");
  }
}

}  // namespace
