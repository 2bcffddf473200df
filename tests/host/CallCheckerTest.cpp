#include "host/plugin/CallChecker.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace host {
namespace {

using Words = std::vector<std::uint32_t>;

const std::map<std::string, std::uint32_t> s_registers = {
    {"SECAP_TXCTL", 0x100}, {"SECAP_RXCTL", 0x104}, {"SECAP_RSTCTL", 0x108}, {"CFGAP_DEVICESTATUS", 0x10C}};

// A plug-in that does what a text says, step by step. Each step is a host call, or stands for the calls that
// belong together on the wire; numbers are hexadecimal. It begins with a chip that was reset into SACI.
class Script {
 public:
  CallChecker checker{WireSizes{.ccfg = 16, .userRecord = 8, .scfg = 8}};

  Script() {
    for (const auto& [name, address] : s_registers)
      Do({.function = "LookupReg", .subject = name, .address = address});
    Play("write SECAP_RSTCTL 5C; read CFGAP_DEVICESTATUS 2005");
  }

  void Play(const std::string& steps) {
    std::istringstream stream(steps);
    for (std::string step; std::getline(stream >> std::ws, step, ';');) Step(step);
  }

  [[nodiscard]] std::string BrokenRules() const {
    std::string rules;
    for (const CallFinding& finding : checker.Findings())
      rules += (rules.empty() ? "" : ", ") + std::string(finding.rule);
    return rules;
  }

 private:
  void Step(const std::string& step) {
    std::istringstream stream(step);
    std::string verb, name;
    stream >> verb;
    if (verb == "read" || verb == "write" || verb == "core" || verb == "call" || verb == "begin")
      stream >> name;
    Words words;
    for (std::string word; stream >> word;)
      words.push_back(static_cast<std::uint32_t>(std::stoul(word, nullptr, 16)));

    if (verb == "core") Do({.function = "SetCoreById", .subject = name});
    if (verb == "call") Do({.function = name, .value = words.empty() ? 0 : words[0]});
    if (verb == "fail") Do({.function = "Sleep", .error = "no"});
    if (verb == "read") Do({.function = "ReadReg", .address = s_registers.at(name), .value = words[0]});
    if (verb == "write") Do({.function = "WriteReg", .address = s_registers.at(name), .value = words[0]});
    if (verb == "move") Move("ReadMemory", words);
    if (verb == "push") Transfer("WriteMemory", words);
    if (verb == "pop") Transfer("ReadMemory", words);
    if (verb == "command" || verb == "exchange") Command(words);
    if (verb == "answer") Answer(words);
    if (verb == "exchange") Answer({words[0] & 0xFFFF});
    if (verb == "begin") checker.Begins({.function = name}, 0);
    if (verb == "end") checker.Ends({.function = "Erase"}, 0);
    if (verb == "end-no") checker.Ends({.function = "Erase", .error = "no"}, 0);
    if (verb == "end-mute") checker.Ends({.function = "Erase", .error = ""}, 0);
  }

  void Do(HostCall call) {
    call.number = ++calls;
    call.core = core;
    checker.Saw(call, 0);
    if (call.function == "SetCoreById") core = *call.subject;
  }
  void Move(std::string_view function, const Words& words) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(words.data());
    Do({.function = function, .address = 0, .page = 1, .elementSize = 4, .data = {bytes, words.size() * 4}});
  }
  void Transfer(std::string_view function, const Words& words) {
    Play("core SEC_AP; call IsConnected 1");
    Move(function, words);
    Play("core CS_DAP_0");
  }
  void Command(const Words& words) {
    Play("read SECAP_TXCTL 0; write SECAP_TXCTL 2");
    Transfer("WriteMemory", {words[0]});
    if (words.size() == 1) return;
    Play("write SECAP_TXCTL 0");
    Transfer("WriteMemory", {words.begin() + 1, words.end()});
  }
  void Answer(const Words& words) {
    Play("read SECAP_RXCTL 1");
    Transfer("ReadMemory", {words[0]});
    if (words.size() > 1) Transfer("ReadMemory", {words.begin() + 1, words.end()});
  }

  std::uint64_t calls = 0;
  std::string core = "CS_DAP_0";
};

TEST(CallCheckerTest, HoldsAPluginToTheContractAndTheWire) {
  std::string sector;
  for (int word = 0; word < 512; ++word) sector += " 0";
  const struct {
    const char* what;
    std::string steps;
    const char* rules;  // that are broken
  } cases[] = {
      {"register off the debug port", "core SEC_AP; call Connect; read SECAP_RXCTL 0", "debug port"},
      {"core never connected", "core SEC_AP; move 1; core CS_DAP_0", "connect first, answer"},
      {"core lost with the debug port",
       "core SEC_AP; call Connect; core CS_DAP_0; call ReConnect; core SEC_AP; move 1; core CS_DAP_0",
       "connect first, answer"},
      {"core let go", "call Disconnect; read SECAP_RXCTL 0", "connect first"},
      {"all lost with a reset", "call ResetTarget; read SECAP_RXCTL 0", "connect first"},
      {"core that the host kept", "call ResetTarget; call IsConnected 1; read SECAP_RXCTL 0", ""},
      {"call after a transfer", "core SEC_AP; call Connect; move 1; call IsConnected 1; core CS_DAP_0",
       "answer, give back"},
      {"return after a transfer", "core SEC_AP; call Connect; move 1; end", "answer, give back"},
      {"failure passed on", "fail; core CS_DAP_0; end-no; begin Next; call IsConnected 1", ""},
      {"failure ignored", "fail; call IsConnected 1; call IsConnected 1; end", "stop, pass on"},
      {"failure without its text", "fail; end-mute", "pass on"},
      {"no text", "end-mute", "say why"},
      {"empty message", "call ReportError", "say why"},
      {"empty transfer", "push", "something to move"},
      {"whole commands",
       "exchange 1; exchange 109 5C17E94B; exchange 20C 5C17E94B 1 2 3 4; command 305; answer 2000305 7 8; "
       "exchange 20406 1 2; exchange 50D 5C17E94B 1 2; exchange 5060E 5C17E94B 0 1 2; exchange 710 0 800 0; "
       "exchange 811 0 0 0 0; exchange 91A 5C17E94B 1 2; exchange A1B 0; exchange B1C 5C17E94B; "
       "exchange C22; exchange D23; exchange 110E06 1 2 3 4 5 6 7 8 9 A B C D E F 10; exchange F01",
       ""},
      {"a whole sector", "exchange 19 5C17E94B" + sector + "; exchange 101", ""},
      {"pipelined", "command F 5C17E94B 0; push 1 2; push 3 4; answer F; answer 10F; exchange 101", ""},
      {"pipelined nothing", "command F 5C17E94B 0; exchange 101", ""},
      {"pipelined without a look", "command F 5C17E94B 0; push 1 2; exchange 101", "answer"},
      {"firmware", "command 21 3; push 1 2; push 3; answer 21; exchange 101", ""},
      {"firmware refused at once", "command 21 3; answer 910021; exchange 101", ""},
      {"firmware cut short", "command 21 3; push 1; exchange 101", "command"},
      {"not seen in SACI", "write SECAP_RSTCTL 5C; exchange 1", "in SACI"},
      {"left SACI",
       "exchange 7; exchange 101; read CFGAP_DEVICESTATUS 2005; exchange 208; exchange 301; "
       "read CFGAP_DEVICESTATUS 2005; exchange 415; exchange 501",
       "in SACI, in SACI, in SACI"},
      {"was not let go", "command 7; answer 10007; exchange 115", ""},
      {"reset with an answer", "exchange 10014; exchange 101", "in SACI, sequence"},
      {"reset whose answer is not read", "command 10014; exchange 101", "answer"},
      {"reset without one", "command 14; read CFGAP_DEVICESTATUS 2005; exchange 1", ""},
      {"TX full", "read SECAP_TXCTL 1; write SECAP_TXCTL 2; push 1", "TX empty"},
      {"TX not looked at", "write SECAP_TXCTL 2; push 1; answer 1; write SECAP_TXCTL 2; push 101",
       "TX empty, TX empty"},
      {"flag over parameters", "read SECAP_TXCTL 0; write SECAP_TXCTL 2; push 9 5C17E94B", "start flag"},
      {"no flag", "push 1 2", "command"},
      {"too short", "command 10 0 800; exchange 101", "command"},
      {"too long", "exchange 10 0 800 0 0 0", "command"},
      {"unknown", "exchange 63; exchange 101", "command"},
      {"wrong keys",
       "exchange 9 1; exchange 10C 1 1 2 3 4; exchange 20D 1 1 2; exchange 1030E 1 0 1; command 40F 1 0; "
       "exchange 51A 1 1 2; exchange 61C 1; exchange 719 1" +
           sector,
       "key, key, key, key, key, key, key, key"},
      {"number repeated", "exchange 1; exchange 1", "sequence"},
      {"numbers of a new device", "exchange 1; begin CreateFlashDevice4; exchange 1", ""},
      {"answer not ready", "command 1; read SECAP_RXCTL 4; pop 1", "answer"},
      {"answer of before", "read SECAP_RXCTL 1; command 1; pop 1", "answer"},
      {"answer of before a reset",
       "command 1; read SECAP_RXCTL 1; write SECAP_RSTCTL 5C; read CFGAP_DEVICESTATUS 2005; pop 1", "answer"},
      {"answer read too far", "command 5; answer 1000005 7 8", "answer"},
      {"answer half read", "command 5; answer 2000005 7; exchange 101", "answer"},
      {"answer not read", "command 1; exchange 101", "answer"},
      {"odd registers", "write SECAP_RSTCTL 1; write SECAP_TXCTL 3; write SECAP_RXCTL 0",
       "register, register, register"},
      {"lost after a failure", "command 1; end-no; exchange 501; exchange 501", ""},
      {"and found by a reset", "command 1; end-no; write SECAP_RSTCTL 5C; exchange 501", "in SACI, sequence"},
  };
  for (const auto& c : cases) {
    Script script;
    script.Play(c.steps);
    EXPECT_EQ(script.BrokenRules(), c.rules) << c.what;
  }
}

TEST(CallCheckerTest, SaysWhatIsWrongOnTheWire) {
  Script script;
  script.Play(
      "push 1; write SECAP_TXCTL 3; read SECAP_TXCTL 0; write SECAP_TXCTL 2; push 9 5C17E94B; exchange 163; "
      "exchange 1; exchange 110 0 0 0 0; command 201; exchange 309 1; pop 1; write SECAP_RSTCTL 5C; "
      "write SECAP_TXCTL 2; push 1");
  std::string told;
  for (const CallFinding& f : script.checker.Findings()) told += f.what + ". ";
  EXPECT_EQ(
      told,
      "words come without a command. SECAP_TXCTL is written with 0x3. is set for 2 words; the header is one. "
      "command 9 is cut short by the next. there is no command 99. command 1 has number 0 instead of 2. "
      "command 16 has more than its 4 words. that of command 1 was not read. command 9 comes with "
      "0x00000001. "
      "a word is read that was not seen ready. a command goes out before the chip was seen in SACI. "
      "a command goes out before TX_DATA_FULL was seen clear. ");
}

TEST(CallCheckerTest, SaysWhereAndWhat) {
  CallChecker checker({});
  checker.Saw(
      {.function = "WriteReg", .number = 7, .core = "Cortex", .address = 0x1'0000'0000, .value = 0xFFFF'FFFF},
      0);
  checker.Saw(
      {.function = "ReadMemory", .number = 8, .core = "SEC_AP", .address = 4, .elementSize = 2, .error = ""},
      0);
  checker.Ends({.function = "Initialize"}, 0);
  checker.Begins({.function = "Erase"}, 0);
  checker.Saw({.function = "Connect", .number = 9, .core = "SEC_AP"}, 0);
  checker.Saw(
      {.function = "ReadMemory", .number = 9, .core = "SEC_AP", .address = 0, .page = 1, .elementSize = 4},
      0);
  checker.Saw({.function = "Sleep", .number = 10, .core = "SEC_AP", .error = "no"}, 0);
  checker.Saw({.function = "WriteReg",
               .number = 11,
               .core = "SEC_AP",
               .address = 0xFFFF'FFFF,
               .value = 0x1'0000'0000},
              0);
  checker.Ends({.function = "Erase", .error = "yes"}, 0);
  checker.Ends({.function = "Erase", .error = ""}, 0);
  checker.Saw({.function = "ReportInfo", .number = 12, .core = "SEC_AP", .subject = ""}, 0);
  checker.Saw({.function = "reserved function", .number = 13, .core = "SEC_AP", .value = 21}, 0);
  std::string told;
  for (const CallFinding& f : checker.Findings()) told += fmt::format("{} {}: {}\n", f.call, f.rule, f.what);
  EXPECT_EQ(told,
            "7 connect first: WriteReg while Cortex is not connected\n"
            "7 debug port: WriteReg through Cortex\n"
            "7 32 bits: WriteReg at 0x100000000\n"
            "8 connect first: ReadMemory while SEC_AP is not connected\n"
            "8 data register: ReadMemory of elements of 2 bytes at 0x00000004 of page 0\n"
            "8 give back: Initialize ended with SEC_AP current after a transfer\n"
            "8 pass on: a call failed with \"\", Initialize succeeded\n"
            "9 something to move: ReadMemory of no elements\n"
            "10 give back: Sleep came before CS_DAP_0 was made current again\n"
            "11 stop: WriteReg came after \"no\"\n"
            "11 debug port: WriteReg through SEC_AP\n"
            "11 32 bits: WriteReg of 0x100000000\n"
            "11 pass on: a call failed with \"no\", Erase with \"yes\"\n"
            "11 say why: Erase failed without a text\n"
            "12 say why: ReportInfo without a text\n"
            "13 reserved: function 21 of the table\n");
}

}  // namespace
}  // namespace host
