#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <span>
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

constexpr std::uint8_t kPipelinedId = 15;
constexpr std::uint8_t kFirmwareId = 33;

// A port that takes every word and gives the input's words. Refuses to go on for ever.
struct WordPort : HostObject {
  WordPort(ByteSource source, bool flagsAreHonest)
      : HostObject{&s_table}, words(source), honestFlags(flagsAreHonest) {}

  static WordPort& Self(HostObject* object) { return static_cast<WordPort&>(*object); }
  const char* CountTransfer() {
    constexpr unsigned kMostTransfers = 2000;
    Require(core == "SEC_AP", "words go through the security access port");
    return ++transfers > kMostTransfers ? "the port is worn out" : nullptr;
  }
  const static HostFunctionTable s_table;

  ByteSource words;
  bool honestFlags;
  unsigned transfers = 0;
  std::vector<std::uint32_t> sent;
  std::vector<std::uint32_t> received;
  std::string core;
};

const HostFunctionTable WordPort::s_table = [] {
  using Text = const char*;
  using Address = Debugger::Address;
  constexpr unsigned kTxControl = 1, kRxControl = 2;
  HostFunctionTable table{};
  table.lookupReg = [](HostObject*, const char* name, Address* address) -> Text {
    *address = Address(std::strcmp(name, "SECAP_TXCTL") == 0 ? kTxControl : kRxControl);
    return nullptr;
  };
  table.readReg = [](HostObject* object, Address address, unsigned long long* value) -> Text {
    WordPort& self = Self(object);
    Require(self.core == "CS_DAP_0", "registers are read through the debug port");
    *value = !self.honestFlags ? self.words.Byte() : Extract(address) == kTxControl ? 0U : 1U;
    return nullptr;
  };
  table.writeReg = [](HostObject*, Address, unsigned long long) -> Text { return nullptr; };
  table.writeMemory = [](HostObject* object, const void* elements, std::size_t count, Address, int,
                         std::size_t) {
    WordPort& self = Self(object);
    self.sent.resize(self.sent.size() + count);
    std::memcpy(self.sent.data() + self.sent.size() - count, elements, count * sizeof(std::uint32_t));
    return self.CountTransfer();
  };
  table.readMemory = [](HostObject* object, void* elements, std::size_t count, Address, int, std::size_t) {
    WordPort& self = Self(object);
    for (std::size_t i = 0; i < count; ++i) self.received.push_back(self.words.Word());
    std::memcpy(elements, self.received.data() + self.received.size() - count, count * sizeof(std::uint32_t));
    return self.CountTransfer();
  };
  table.reportInfo = [](HostObject*, const char*) -> Text { return nullptr; };
  table.sleep = [](HostObject*, unsigned) -> Text { return nullptr; };
  table.setCoreById = [](HostObject* object, const char* id) -> Text {
    Self(object).core = id;
    return nullptr;
  };
  table.isConnected = [](HostObject*, bool* connected) -> Text {
    *connected = true;
    return nullptr;
  };
  return table;
}();

struct Header {
  std::uint8_t id, sequence, result, dataWords;
};

Header HeaderOf(std::uint32_t word) {
  return {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
          static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
}

// The commands with one answer: what they give out is what the words say, or nothing.
void CheckOneAnswer(SaciInterface& saci, const WordPort& port, std::uint8_t choice) {
  constexpr std::uint64_t kUnwritten = 0x5A5A'5A5A;
  const std::vector<std::uint8_t> data(choice, 0x11);
  const bool option = choice >= 128;
  bool hasId = false;
  std::uint64_t passwordId = kUnwritten;
  std::vector<std::uint32_t> retained;
  const std::array<std::function<std::uint8_t()>, 14> commands = {
      [&] { return saci.Nop(); },
      [&] { return saci.ReqPasswordId(hasId, passwordId); },
      [&] { return saci.SubmitAuth(std::string(choice, 'a'), option); },
      [&] { return saci.ExitSaciHalt(); },
      [&] { return saci.ExitSaciShutdown(); },
      [&] { return saci.ExitSaciRun(); },
      [&] { return saci.EraseChip(true, option, &retained); },
      [&] { return saci.ProgCcfgSector(data, option); },
      [&] { return saci.ProgCcfgUserRecord(data); },
      [&] { return saci.ProgScfgSector(data); },
      [&] { return saci.ProgOtpSector(data); },
      [&] { return saci.ProgMainSector(0x800, data); },
      [&] { return saci.VerifyMainSectors(0, 0x800, 1, option); },
      [&] { return saci.VerifyScfgSector(true, 1); },
  };
  std::uint8_t result = 0;
  try {
    result = commands[choice % commands.size()]();
  } catch (const std::exception&) {
    Require(!hasId && passwordId == kUnwritten && retained.empty(), "a refused command writes no result");
    return;
  }
  const std::vector<std::uint32_t>& words = port.received;
  const Header sent = HeaderOf(port.sent.at(0));
  const Header header = HeaderOf(words.at(0));
  Require(header.id == sent.id && header.sequence == sent.sequence,
          "an accepted response echoes its command");
  Require(result == header.result, "the result is the response's");
  Require(words.size() == header.dataWords + 1U && header.dataWords <= 32,
          "the response is read to its end and no further");
  Require(hasId == (sent.id == 5 && header.dataWords == 2), "two data words are a password id");
  Require(passwordId == (hasId ? std::uint64_t{words[2]} << 32 | words[1] : kUnwritten),
          "the password id is the response's");
  Require(std::ranges::equal(retained, std::span(words).subspan(sent.id == 9 ? 1 : words.size())),
          "the retain field is the data of an erase's response");
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
