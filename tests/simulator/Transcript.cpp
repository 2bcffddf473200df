#include "Transcript.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

namespace simulator {
namespace {

constexpr const char* kArrow = "->";

std::uint32_t Hex(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
}

void AppendWords(Words& words, const std::string& token) {
  if (const std::size_t star = token.find('*'); star != std::string::npos) {
    words.insert(words.end(), std::stoul(token.substr(0, star)), Hex(token.substr(star + 1)));
  } else if (token == "CCFG") {
    words = Joined(words, AsWords(ValidCcfg(kOpen)));
  } else if (token == "PASSWORD") {
    words = Joined(words, PasswordWords());
  } else if (token != "-") {
    words.push_back(token == "KEY" ? kKey : token == "NOKEY" ? kKey ^ 1 : Hex(token));
  }
}

// The words up to `end`, which is taken, too.
Words WordsUntil(std::istream& step, const char* end = "") {
  Words words;
  for (std::string token; step >> token && token != end;) AppendWords(words, token);
  return words;
}

ChipState Holding(const std::string& kind, const std::string& flipAt) {
  ChipState state = BlankState(SmallChip());
  const std::map<std::string, std::uint8_t> types = {
      {"open", kOpen}, {"closed", kClosed}, {"password", kPassword}};
  const auto type = types.find(kind);
  state.ccfg = ValidCcfg(type != types.end() ? type->second : static_cast<std::uint8_t>(Hex(kind)));
  if (!flipAt.empty()) state.ccfg.at(Hex(flipAt)) ^= 0x10;
  return state;
}

class Player {
 public:
  explicit Player(TestChip& chip) : target(chip), marked(chip.Contents()) {}

  void Step(const std::string& text) {
    std::istringstream step(text);
    if (text.find(kArrow) != std::string::npos) {
      const Words command = WordsUntil(step, kArrow);
      EXPECT_EQ(target.Command(command), WordsUntil(step));
      return;
    }
    std::string verb, name, at;
    step >> verb;
    if (verb == "send") return target.Send(WordsUntil(step));
    if (verb == "answer") return Expect(target.Answer(), step);
    if (verb == "raw") return target.WriteTxWords(WordsUntil(step));
    if (verb == "boot") return Expect({target.BootStatus()}, step);
    if (verb == "ahb") return Expect({std::uint32_t{target.AhbEnabled()}}, step);
    if (verb == "saci") return target.EnterSaci();
    if (verb == "pin") return target.PinReset();
    if (verb == "unchanged") return ExpectUnchanged();
    step >> name;
    if (verb == "set") return target.chip.WriteRegister(Named(name), WordsUntil(step).at(0));
    if (verb == "sleep") return target.Sleep(static_cast<std::uint32_t>(std::stoul(name)));
    if (verb == "ns") return target.chip.Clock().Advance(std::stoul(name));
    if (verb == "fault") return target.chip.AskedFaults().Add(name);
    if (name == "=") return Expect({target.chip.ReadRegister(Named(verb))}, step);
    step >> at;
    if (verb == "hold") target.Become(Holding(name, at));
    if (verb == "hold" || verb == "mark") {
      marked = target.Contents();
      return;
    }
    const Words expected = WordsUntil(step);
    const std::size_t bytes = 4 * expected.size();
    EXPECT_EQ(AsWords(std::span(Memory(verb)).subspan(Hex(name), bytes)), expected);
  }

 private:
  static Register Named(const std::string& name) { return RegisterNamed("SECAP_" + name); }
  static void Expect(const Words& words, std::istream& step) { EXPECT_EQ(words, WordsUntil(step)); }

  void ExpectUnchanged() const { EXPECT_EQ(target.Contents(), marked); }

  const Bytes& Memory(const std::string& name) {
    const ChipState& state = target.chip.State();
    const std::map<std::string, const Bytes*> memories = {
        {"main", &state.main}, {"ccfg", &state.ccfg}, {"scfg", &state.scfg}, {"otp", &state.otp}};
    return *memories.at(name);
  }

  TestChip& target;
  ChipState marked;
};

}  // namespace

void Play(TestChip& target, const Transcript& transcript) {
  std::string steps = transcript.steps;
  std::ranges::replace(steps, ';', '\n');
  std::istringstream lines(steps);
  Player player(target);
  for (std::string step; std::getline(lines, step);) {
    if (step.find_first_not_of(' ') == std::string::npos) continue;
    SCOPED_TRACE(std::string(transcript.about) + ": " + step);
    try {
      player.Step(step);
    } catch (const std::exception& error) {
      FAIL() << error.what();
    }
  }
}

void PlayEach(std::span<const Transcript> transcripts, const ChipDescription& description,
              const CostModel& costs) {
  for (const Transcript& transcript : transcripts) {
    TestChip target(description, costs);
    Play(target, transcript);
  }
}

}  // namespace simulator
