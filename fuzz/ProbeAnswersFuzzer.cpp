#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "ByteSource.h"
#include "Require.h"
#include "host/device/DeviceDescription.h"
#include "host/probe/AdiProbe.h"
#include "host/probe/cmsisdap/CmsisDap.h"
#include "host/probe/simulated/SimulatedBoard.h"
#include "tests/support/SpoiledLink.h"

// A probe whose answers are changed, cut, replaced or lost, under everything that a plug-in asks of it.
// Whatever it answered, what failed is told as a failure of the probe, and a session with it goes on when it
// answers rightly again.
//
// Input: an action, then for each answer what becomes of it; honest answers when it has run out.

namespace {

using namespace fuzz;
using namespace host;

const DeviceDescription& Device() {
  const static DeviceDescription device = ReadDeviceDescription(TOVIK_DEVICES_DIR "/serin-s20.xml");
  return device;
}

bool Spoil(ByteSource& input, Packet& answer) {
  switch (input.Byte() & 7) {
    case 1: return false;
    case 2: answer.resize(std::min<std::size_t>(answer.size(), input.Byte())); return true;
    case 3: answer = Packet(1, input.Byte()); return true;
    case 4:
    case 5:
      if (!answer.empty()) answer[input.Byte() % answer.size()] = input.Byte();
      return true;
    case 6: {
      const auto bytes = input.Take(input.Byte());
      answer.assign(bytes.begin(), bytes.end());
      return true;
    }
    default: return true;
  }
}

class Session {
 public:
  explicit Session(ByteSource& itsInput) : input(itsInput) {}

  // What a load does, in a different order every time.
  void Act() {
    if (!probe) {
      auto packets = std::make_unique<CmsisDap>(std::make_unique<SpoiledLink>(board.Target(), spoiler));
      probe = std::make_unique<AdiProbe>(std::move(packets), Device().ports);
    }
    std::vector<std::uint32_t> words(1 + input.Byte() * 5U);
    std::vector<std::uint8_t> bytes(8);
    switch (input.Byte() % 7) {
      case 0: probe->Connect(Core::DebugPort); break;
      case 1: probe->WriteRegister(Register("SECAP_RSTCTL"), 0x5C); break;
      case 2: probe->PushWords(words); break;
      case 3: probe->PopWords(words); break;
      case 4: (void)probe->ReadRegister(Register("SECAP_RXCTL")); break;
      case 5: probe->PinReset(); break;
      default: probe->ReadMemory(0x2000'0000, bytes, 4); break;
    }
  }

  void RequireGoesOn() {
    spoiler = nullptr;
    if (!probe) Act();
    probe->PinReset();
    probe->Connect(Core::DebugPort);
    Require(probe->ReadRegister(Register("CFGAP_DEVICEID")) == Device().chip.deviceId, "the session goes on");
  }

 private:
  std::uint32_t Register(const char* name) { return probe->FindRegister(name).value(); }

  ByteSource& input;
  SimulatedBoard board{Device(), {}};
  SpoiledLink::Spoiler spoiler = [this](Packet& answer) { return Spoil(input, answer); };
  std::unique_ptr<AdiProbe> probe;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongest = 512;
  ByteSource input({data, std::min(size, kLongest)});
  Session session(input);
  while (!input.IsEmpty()) {
    try {
      session.Act();
    } catch (const std::runtime_error& error) {
      Require(*error.what() != '\0', "a failure has a text");
    }
  }
  session.RequireGoesOn();
  return 0;
}
