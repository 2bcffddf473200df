#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "Require.h"
#include "SaciInterface.h"

// Arbitrary words as what the chip answers, and arbitrary flags of its port. Every command of the channel has
// to end: with a result that the words really hold, or with an exception that leaves its results unwritten.
//
// Input: the command | whether the port's flags are honest | the words, and the flags between them.

namespace {

using namespace fuzz;

const constexpr char* kTxControl = "SECAP_TXCTL";
constexpr std::uint8_t kPipelinedId = 15;
constexpr std::uint8_t kFirmwareId = 33;

// A port that takes every word and gives the input's words. Refuses to go on for ever.
class WordPort : public HostObject {
 public:
  WordPort(ByteSource source, bool flagsAreHonest)
      : HostObject{&s_table}, words(source), honestFlags(flagsAreHonest) {}

  unsigned transfers = 0;
  std::vector<std::uint32_t> sent;
  std::vector<std::uint32_t> received;
  std::string core;

 private:
  static constexpr unsigned kTxControlAddress = 1;
  static constexpr unsigned kRxControlAddress = 2;
  static constexpr unsigned kMostTransfers = 2000;

  static WordPort& Self(HostObject* object) { return static_cast<WordPort&>(*object); }
  const static char* CountTransfer(WordPort& self) {
    Require(self.core == "SEC_AP", "words go through the security access port");
    return ++self.transfers > kMostTransfers ? "the port is worn out" : nullptr;
  }
  const static char* LookupReg(HostObject*, const char* name, Debugger::Address* address) {
    *address = Debugger::Address(std::strcmp(name, kTxControl) == 0 ? kTxControlAddress : kRxControlAddress);
    return nullptr;
  }
  const static char* ReadReg(HostObject* object, Debugger::Address address, unsigned long long* value) {
    WordPort& self = Self(object);
    Require(self.core == "CS_DAP_0", "registers are read through the debug port");
    const bool isTx = Extract(address) == kTxControlAddress;
    constexpr unsigned kReady = 1;
    *value = self.honestFlags ? (isTx ? 0U : kReady) : self.words.Byte();
    return nullptr;
  }
  const static char* WriteReg(HostObject*, Debugger::Address, unsigned long long) { return nullptr; }
  const static char* WriteMemory(HostObject* object, const void* elements, std::size_t count,
                                 Debugger::Address, int, std::size_t) {
    WordPort& self = Self(object);
    const std::size_t before = self.sent.size();
    self.sent.resize(before + count);
    std::memcpy(&self.sent[before], elements, count * sizeof(std::uint32_t));
    return CountTransfer(self);
  }
  const static char* ReadMemory(HostObject* object, void* elements, std::size_t count, Debugger::Address, int,
                                std::size_t) {
    WordPort& self = Self(object);
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint32_t word = self.words.Word();
      std::memcpy(static_cast<std::uint8_t*>(elements) + i * sizeof word, &word, sizeof word);
      self.received.push_back(word);
    }
    return CountTransfer(self);
  }
  const static char* Report(HostObject*, const char*) { return nullptr; }
  const static char* Sleep(HostObject*, unsigned) { return nullptr; }
  const static char* SetCoreById(HostObject* object, const char* id) {
    Self(object).core = id;
    return nullptr;
  }
  const static char* IsConnected(HostObject*, bool* connected) {
    *connected = true;
    return nullptr;
  }
  const static HostFunctionTable s_table;

  ByteSource words;
  bool honestFlags;
};

const HostFunctionTable WordPort::s_table = [] {
  HostFunctionTable table{};
  table.readMemory = ReadMemory;
  table.writeMemory = WriteMemory;
  table.lookupReg = LookupReg;
  table.readReg = ReadReg;
  table.writeReg = WriteReg;
  table.reportInfo = Report;
  table.sleep = Sleep;
  table.setCoreById = SetCoreById;
  table.isConnected = IsConnected;
  return table;
}();

struct Header {
  std::uint8_t id, sequence, result, dataWords;
};

Header HeaderOf(std::uint32_t word) {
  return {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
          static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
}

// The commands with one answer. Nothing when the command was refused by an exception.
class OneAnswerCommand {
 public:
  OneAnswerCommand(SaciInterface& channel, std::uint8_t command) : saci(channel), choice(command) {}

  std::uint8_t Run() {
    const std::vector<std::uint8_t> data(choice, 0x11);
    switch (choice % 14) {
      case 0: return saci.Nop();
      case 1: return saci.ReqPasswordId(hasId, passwordId);
      case 2: return saci.SubmitAuth(std::string(choice, 'a'), choice >= 128);
      case 3: return saci.ExitSaciHalt();
      case 4: return saci.ExitSaciShutdown();
      case 5: return saci.ExitSaciRun();
      case 6: return saci.EraseChip(true, choice >= 128, &retained);
      case 7: return saci.ProgCcfgSector(data, choice >= 128);
      case 8: return saci.ProgCcfgUserRecord(data);
      case 9: return saci.ProgScfgSector(data);
      case 10: return saci.ProgOtpSector(data);
      case 11: return saci.ProgMainSector(0x800, data);
      case 12: return saci.VerifyMainSectors(0, 0x800, 1, choice >= 128);
      default: return saci.VerifyScfgSector(true, 1);
    }
  }

  // After a success: what was given out is what the words say.
  void CheckResults(const Header& header, const std::vector<std::uint32_t>& words) const {
    if (choice % 14 == 1) {
      Require(hasId == (header.dataWords == 2), "two data words are a password id");
      const std::uint64_t expected = hasId ? std::uint64_t{words[2]} << 32 | words[1] : kUnwritten;
      Require(passwordId == expected, "the password id is the response's");
    }
    if (choice % 14 == 6)
      Require(std::equal(retained.begin(), retained.end(), words.begin() + 1, words.end()),
              "the retain field is the response's data");
  }
  void CheckUnwritten() const {
    Require(!hasId && passwordId == kUnwritten && retained.empty(), "a refused command writes no result");
  }

 private:
  static constexpr std::uint64_t kUnwritten = 0x5A5A'5A5A;

  SaciInterface& saci;
  std::uint8_t choice;
  bool hasId = false;
  std::uint64_t passwordId = kUnwritten;
  std::vector<std::uint32_t> retained;
};

void CheckOneAnswer(SaciInterface& saci, const WordPort& port, std::uint8_t choice) {
  OneAnswerCommand command(saci, choice);
  try {
    const std::uint8_t result = command.Run();
    const Header sent = HeaderOf(port.sent.at(0));
    const Header header = HeaderOf(port.received.at(0));
    Require(header.id == sent.id && header.sequence == sent.sequence,
            "an accepted response echoes its command");
    Require(result == header.result, "the result is the response's");
    Require(port.received.size() == header.dataWords + 1U && header.dataWords <= 32,
            "the response is read to its end and no further");
    command.CheckResults(header, port.received);
  } catch (const std::exception&) {
    command.CheckUnwritten();
  }
}

// `operation` succeeds only when the last response header that was read is about `id` and without data. The
// stream of no data that begins at number 0 is the one that asks for no response.
template <typename Operation>
void CheckStream(const WordPort& port, std::uint8_t id, Operation operation) {
  try {
    Require(operation() == 0, "a stream that ends well gives 0");
  } catch (const std::exception&) {
    return;
  }
  if (port.received.empty()) {
    Require(id == kPipelinedId && port.sent.size() == 3, "data that was sent has been acknowledged");
    return;
  }
  const Header last = HeaderOf(port.received.back());
  Require(last.id == id && last.dataWords == 0, "the stream ends with its own empty response");
}

template <typename Read>
void CheckHsmText(Read read) {
  std::string text = "before";
  try {
    Require(read(&text) == 0, "what could be read gives 0");
    Require(text != "before" && !text.empty(), "what could be read is written down");
  } catch (const std::exception&) {
    Require(text == "before", "what could not be read is not written down");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteSource input({data, size});
  const std::uint8_t kind = input.Byte() % 8;
  const std::uint8_t choice = input.Byte();
  const bool honestFlags = input.Byte() % 4 != 0;
  const std::uint8_t earlierCommands = input.Byte();
  WordPort port(input, honestFlags);
  IFlashProgrammerUtility2 utility(&port);
  SaciInterface saci(&utility, 2048, 2048, 128);
  saci.setScfgSize(1024);
  for (unsigned i = 0; i < earlierCommands; ++i) (void)saci.GenRespSeqNumber();

  const std::vector<std::uint8_t> chunks(std::size_t{choice} * 8, 0x22);
  const std::vector<std::uint8_t> chain = {0, 0, 0, 0, 4, 0, 0, 0, 1, 2, 3, 4, 3, 0, 0, 0, 5, 6, 7, 0};
  switch (kind) {
    case 0: CheckStream(port, kPipelinedId, [&] { return saci.ProgMainPipelined(0, chunks, 8); }); break;
    case 1: CheckStream(port, kFirmwareId, [&] { return saci.ProgHsmFw(chunks); }); break;
    case 2: CheckStream(port, kFirmwareId, [&] { return saci.ProgHsmFwBleMid(chain); }); break;
    case 3: CheckHsmText([&](std::string* text) { return saci.ReadHsmSysInfo(text); }); break;
    case 4: CheckHsmText([&](std::string* text) { return saci.ReadHsmUpdateStatus(text); }); break;
    default: CheckOneAnswer(saci, port, choice); break;
  }
  Require(port.core == "CS_DAP_0", "the debug port is current again");
  return 0;
}
