#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/plugin/HostTable.h"

using Words = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;

// Lines joined by line breaks: two of these compared by EXPECT_EQ print as a diff.
std::string Joined(const std::vector<std::string>& lines);

// What the fake ROM answers to one command (or to one streamed chunk); by default success with the right
// echo.
struct SaciReply {
  std::uint8_t result = 0;
  Words data{};
  std::optional<std::uint8_t> id{};        // echoed instead of the right command id
  std::optional<std::uint8_t> sequence{};  // echoed instead of the right sequence number
  unsigned latePolls = 0;                  // reads of SECAP_RXCTL that show no data yet
  bool silent = false;                     // no response at all
  // Only for id 33: come after this many streamed pieces (0: after the command), announced by RX bit 3,
  // before the image is complete. The response to the complete image is the next reply in the queue.
  std::optional<unsigned> earlyAfterPieces{};
};

// One command as the fake ROM received it.
struct SaciCommand {
  Words words;                  // header first
  std::vector<Words> streamed;  // one entry a transfer that followed the command (ids 15 and 33)

  [[nodiscard]] std::uint8_t Id() const { return static_cast<std::uint8_t>(words.at(0)); }
  [[nodiscard]] std::uint8_t Sequence() const { return static_cast<std::uint8_t>(words.at(0) >> 8); }
  [[nodiscard]] std::uint16_t Specific() const { return static_cast<std::uint16_t>(words.at(0) >> 16); }
};

// A host in memory: properties, three debug cores with a connection each, registers, RAM, and behind the
// SEC-AP a ROM that answers SACI commands from a script. It records every call of the function table as one
// line and is strict: a register is reached only while CS_DAP_0 is current and connected, the SACI data word
// only while SEC_AP is, commands have exactly their size and their start flag, responses are read once they
// are ready and no further than they go. A breach fails the running test.
class FakeHost : public HostObject {
 public:
  FakeHost();

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  // "Name=Value; Name=Value"
  void Set(const std::string& settings);

  // What the host knows and the chip is; tests change these freely.
  std::map<std::string, std::string> properties;
  std::string currentCore = "Cortex";
  std::set<std::string> connectedCores = {"CS_DAP_0"};
  std::map<std::string, std::uint64_t> registers = {{"CFGAP_DEVICEID", 0x1BB7702F},
                                                    {"CFGAP_PARTID", 0x80010203}};
  std::map<std::uint64_t, std::uint8_t> memory;     // of every core but SEC_AP; absent bytes read as 0
  std::map<std::uint64_t, std::uint8_t> readFlips;  // bits that read back inverted, by address

  // CFGAP_DEVICESTATUS unless that register is scripted.
  std::uint8_t lifeCycle = 5;
  std::uint8_t bootStatus = 0x20;
  bool ahbApEnabled = true;
  std::uint8_t bootStatusAfterPinReset = 0x20;
  std::uint8_t bootStatusAfterResetRequest = 0x20;

  unsigned txFullPolls = 0;   // reads of SECAP_TXCTL that still show the data word full
  unsigned workingPolls = 0;  // reads of SECAP_RXCTL with CMD_WORKING, after each transfer of an id 33

  // Values for the next reads of a register; the last one stays.
  void ScriptRegister(const std::string& name, std::deque<std::uint64_t> values) {
    registerScripts[name] = std::move(values);
  }
  // The reply to the next command with this id, after those queued before; for id 15 to the next chunk.
  void ReplyOnce(std::uint8_t id, SaciReply reply) { queuedReplies[id].push_back(std::move(reply)); }
  // The reply to every command with this id for which none is queued.
  void ReplyAlways(std::uint8_t id, SaciReply reply) { standingReplies[id] = std::move(reply); }
  // The next call whose line begins with `prefix` fails with `text` and does nothing. Not for property
  // look-ups.
  void FailNext(const std::string& prefix, const std::string& text) { failPrefixes[prefix] = text; }

  std::vector<std::string> calls;     // one line a call
  std::vector<SaciCommand> commands;  // in order of arrival
  // What the calls amount to, one line an event, with the core that it went to:
  //   "SACI <id>/<specific> <words after the header, or their number when more than five>", "stream <words>",
  //   "identify" (device information was read and published), "Info ...", "Error ...",
  //   "SetProperty ...", "Sleep ...", "ResetTarget 0", "CS_DAP_0 Connect false", "CS_DAP_0 reset request",
  //   "WriteMemory <core> ..." and "ReadMemory <core> ...".
  // What a word transfer does by itself (its flags, its polls, its core) is left out.
  std::vector<std::string> events;
  // Empties all three; what the host and the chip are stays.
  void ForgetCalls();

  // The events that begin with one of the prefixes.
  [[nodiscard]] std::vector<std::string> Plot(const std::vector<std::string>& prefixes) const;

 private:
  friend class host::HostTable<FakeHost>;

  // The functions of the table.
  const char* GetValueOfProperty(const char* name);
  const char* SetValueOfProperty(const char* name, const char* value);
  const char* ResetTarget(int kind);
  const char* ReadMemory(void* elements, std::size_t count, Debugger::Address address, int page,
                         std::size_t size);
  const char* WriteMemory(const void* elements, std::size_t count, Debugger::Address address, int page,
                          std::size_t size);
  const char* LookupReg(const char* name, Debugger::Address* address);
  const char* ReadReg(Debugger::Address address, unsigned long long* value);
  const char* WriteReg(Debugger::Address address, unsigned long long value);
  const char* ReportError(const char* message) { return Event("Report", std::string("Error ") + message); }
  const char* ReportInfo(const char* message) { return Event("Report", std::string("Info ") + message); }
  const char* Sleep(unsigned milliseconds) { return Event("", "Sleep " + std::to_string(milliseconds)); }
  const char* SetCore(const char* name) { return SelectCore("SetCore ", name, {"Cortex"}); }
  const char* SetCoreById(const char* id) { return SelectCore("SetCoreById ", id, {"CS_DAP_0", "SEC_AP"}); }
  const char* Disconnect(bool option);
  const char* IsConnected(bool* connected);
  const char* Connect(bool option) { return ConnectCurrent(option ? "Connect true" : "Connect false"); }
  const char* ReConnect() { return ConnectCurrent("ReConnect"); }
  const char* ReservedFunction(int slot) { return RefuseAsBreach("function " + std::to_string(slot)); }

  // Records the call; a text when it is to fail.
  const char* Begin(const std::string& call);
  const char* Event(const std::string& callPrefix, const std::string& event);
  const char* Refuse(const std::string& text) { return texts.emplace_back(text).c_str(); }
  const char* RefuseAsBreach(const std::string& text);
  const char* ConnectCurrent(const std::string& call);
  const char* SelectCore(const char* call, const std::string& name, const std::set<std::string>& known);
  [[nodiscard]] std::uint64_t RegisterValue(const std::string& name);

  // The ROM's side (FakeHostRom.cpp).
  struct Response {
    std::deque<std::uint32_t> words;
    unsigned latePolls = 0;
    bool early = false;
    bool seenReady = false;
  };
  [[nodiscard]] std::uint32_t RxFlags();
  // Of what a setting gives in bytes: commands of fixed size have the size that is described.
  [[nodiscard]] std::size_t WordsIn(const char* property) const;
  [[nodiscard]] std::size_t ExpectedWords(const SaciCommand& command) const;
  SaciReply TakeReply(std::uint8_t id);
  void ReceiveWords(const Words& words);
  void CompleteCommand();
  void ReceiveStream(const Words& words);
  void QueueResponse(const SaciReply& reply, std::uint8_t id, std::uint8_t sequence);
  void RestartRom(std::uint8_t newBootStatus);

  std::deque<std::string> texts;  // handed out; a deque keeps them in place
  std::map<std::string, std::deque<std::uint64_t>> registerScripts;
  std::map<std::uint8_t, std::deque<SaciReply>> queuedReplies;
  std::map<std::uint8_t, SaciReply> standingReplies;
  std::map<std::string, std::string> failPrefixes;
  bool faultInjected = false;

  std::uint32_t txFlags = 0;
  bool commandOpen = false;  // the last command still misses words
  bool streaming = false;    // the last command takes a stream
  std::size_t wordsStreamed = 0;
  unsigned workingLeft = 0;
  std::deque<Response> responses;
};
