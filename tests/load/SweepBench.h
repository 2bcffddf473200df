#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Workbench.h"
#include "tests/support/ErrorOf.h"

// One device object at work on the bench, from its creation on. Fails by throwing, as the plug-in does.
class Attempt {
 public:
  explicit Attempt(Workbench& workbench);

  // Makes the device object and initializes it, as far as that is not done yet; the others do so first.
  void Create();
  void Load(const host::LoadPlan& plan);
  void Verify(const host::LoadPlan& plan);
  void Perform(const std::string& operation);
  void Script(const std::string& function, const std::vector<host::ScriptValue>& arguments = {});

  // The chip's layout is read by Initialize alone: a host that could not answer then has to call it again.
  void ForgetInitialization() { initialized = false; }

  WatchedServices services;
  std::vector<std::string> errors;  // reported, since the last clear()
  std::vector<std::string> infos;

 private:
  void RunLoad(const host::LoadPlan& plan, const char* verifiesOnly);

  Workbench& bench;
  std::optional<host::PluginDevice> device;
  bool initialized = false;
};

// What is done again and again, each time disturbed in another place.
struct Action {
  std::string name;
  std::function<void(Attempt&)> prepare;  // undisturbed, before every run
  std::function<void(Attempt&)> run;
};

// Where sanitizers slow everything down, one place in so many is visited.
constexpr bool kSampled = TOVIK_SAMPLED_SWEEPS;

// Says what a sweep came to, and fails the test when a whole one has become less than it was.
void ExpectSwept(const std::string& device, const char* what, unsigned places, unsigned least);

// A device, and how its probe is to work.
struct SweepCase {
  std::string device;
  host::ReadAhead readAhead = host::ReadAhead::Yes;

  // GoogleTest would print the bytes of the padding, too.
  friend void PrintTo(const SweepCase& one, std::ostream* out) { *out << one.device; }
};
constexpr auto SweepCaseName = [](const auto& one) {
  return TestName(one.param.device) + (one.param.readAhead == host::ReadAhead::Yes ? "" : "_in_turn");
};
inline const SweepCase kSweepCases[] = {
    {"serin-s20"}, {"corvel-h40-rev2"}, {"corvel-m30"}, {"corvel-m30", host::ReadAhead::No}};

// A chip with an earlier load on it, a small image with every region of the device and the settings of the
// reference load: sectors that the CCFG marks are retained, and where the device knows a password, debugging
// needs one.
class SweepBench {
 public:
  explicit SweepBench(const SweepCase& what);

  // The reference load and others, and every operation and script function that the device supports.
  [[nodiscard]] std::vector<Action> Actions() const;

  // The chip as it was before the first attempt, with power and without faults.
  void PutChipBack();
  // Whether a load on the same device object succeeds and leaves the right bytes everywhere, whatever
  // happened to the chip before. Fails the test otherwise.
  void ExpectNextLoadRecovers(Attempt& attempt);

  Workbench bench;
  CheckImage image;
  host::LoadPlan plan;

 private:
  simulator::ChipState start;
};
