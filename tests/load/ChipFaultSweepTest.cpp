#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "SweepBench.h"

// Every answer of the chip gone wrong in every way: what is told is what belongs to the command, and the next
// load makes the chip right.

namespace {

using Kind = simulator::SaciFault::Action;

struct ChipFault {
  Kind kind;
  unsigned value;

  [[nodiscard]] std::string Text() const {
    switch (kind) {
      case Kind::Result: return "result=" + std::to_string(value);
      case Kind::Lost: return "lost";
      case Kind::Late: return "late=" + std::to_string(value);
      case Kind::WrongId: return "wrong-id";
      case Kind::WrongSequence: return "wrong-seq";
      case Kind::Count: return "count=" + std::to_string(value);
      case Kind::Hang: return "hang";
    }
    return "";
  }
};

const std::map<unsigned, const char*>& ResultTexts() {
  const static std::map<unsigned, const char*> texts = {
      {128, "Invalid command ID"},
      {129, "Invalid address parameter"},
      {130, "Invalid size parameter"},
      {131, "Invalid key parameter"},
      {132, "Flash hardware FSM error"},
      {133, "Parameter data buffer overflow (host must slow down)"},
      {134, "Command is not allowed due to restrictions"},
      {135, "Calculated CRC32 does not match expected CRC32"},
      {136, "Invalid password parameter"},
      {137, "Blank check detected one or more flash bits that were zero"},
      {138, "Invalid auth level parameter"},
      {139, "Invalid auth configuration"},
      {140, "Challenge response verification failed"},
      {141, "Calculated key hash does not match provided the expected key hash"},
      {142, "HSM failed to boot"},
      {143, "HSM FW update failed due to invalid HDR contents"},
      {144, "HSM FW update failed due to invalid version number (anti-rollback)"},
      {145, "HSM FW update failed during either signature verification or decryption"},
      {255, "Unspecified command failure"},
      {1, "Unknown result code received from SACI"},
      {146, "Unknown result code received from SACI"},
  };
  return texts;
}

std::vector<ChipFault> AllFaults() {
  std::vector<ChipFault> faults;
  for (const auto& [result, text] : ResultTexts()) faults.push_back({Kind::Result, result});
  for (const unsigned count : {0U, 1U, 4U, 5U, 32U, 33U, 255U}) faults.push_back({Kind::Count, count});
  for (const unsigned late : {600U, 3000U, 7000U}) faults.push_back({Kind::Late, late});
  for (const Kind kind : {Kind::WrongId, Kind::WrongSequence, Kind::Lost, Kind::Hang})
    faults.push_back({kind, 0});
  return faults;
}

// What becomes of an action: the error that ends it, or nothing, and then perhaps an error that is reported
// while it goes on.
struct Told {
  std::optional<std::string> error;
  std::optional<std::string> reported;
};
Told Fails(const std::string& text) {
  return {.error = text, .reported = {}};
}
Told GoesOn() {
  return {};
}
Told GoesOnReporting(const std::string& text) {
  return {.error = {}, .reported = text};
}

enum Command : std::uint8_t {
  kNop = 1,
  kRequestPasswordId = 5,
  kSubmitPassword = 6,
  kExitHalt = 7,
  kEraseChip = 9,
  kProgramCcfg = 12,
  kProgramPipelined = 15,
  kVerifyMain = 16,
  kVerifyCcfg = 17,
  kResetDevice = 20,
  kExitRun = 21,
  kProgramOtp = 25,
  kProgramScfg = 26,
  kVerifyScfg = 27,
  kProgramHsm = 33,
  kReadHsmInfo = 34,
  kReadHsmStatus = 35,
};
constexpr char kSilence[] = "Timeout when waiting for SEC-AP RX data to be ready.";
constexpr char kTooManyWords[] = "Received response from SACI with too many data words";
constexpr char kRamNotWritten[] =
    "Debugging is not allowed, or has not been authorized. Data will not be written to RAM.";

class Expectation {
 public:
  Expectation(const Action& action, std::uint8_t command, unsigned nth, host::HsmForm hsmForm)
      : name(action.name), id(command), number(nth), hsm(hsmForm) {}

  [[nodiscard]] Told Of(const ChipFault& fault) const {
    if (id == kResetDevice && name == "SaciAppResetDevice without answer") return GoesOn();
    switch (fault.kind) {
      case Kind::Result: return OfResult(fault.value);
      case Kind::Count: return OfCount(fault.value);
      case Kind::Late: return fault.value < PatienceMs() ? GoesOn() : OfSilence(false);
      case Kind::Lost: return OfSilence(true);
      case Kind::WrongId:
        return Fails(IsStream() || IsHsm() ? "Received response from SACI with unexpected command id"
                                           : "Received incorrect command ID from SACI.");
      case Kind::WrongSequence: return OfWrongSequence();
      case Kind::Hang:
        // The work on the last record of an image then never ends.
        return Fails(id == kProgramHsm && hsm == host::HsmForm::Records
                         ? "Timeout when waiting for SACI to clear the CMD_WORKING flag."
                         : kSilence);
    }
    return GoesOn();
  }

 private:
  [[nodiscard]] bool IsStream() const { return id == kProgramPipelined; }
  [[nodiscard]] bool IsHsm() const { return id >= kProgramHsm; }
  [[nodiscard]] bool IsLoad() const { return name == "load"; }
  // The second block of the load is the one with two sectors, each of which the chip acknowledges.
  [[nodiscard]] bool IsFirstOfTwoAcknowledgements() const { return IsStream() && number == 2; }
  [[nodiscard]] unsigned PatienceMs() const {
    return IsStream() || id == kReadHsmInfo || id == kReadHsmStatus ? 1000 : 5000;
  }

  [[nodiscard]] Told OfSilence(bool forGood) const {
    // The second acknowledgement, if it is there, stands for both.
    return forGood && IsFirstOfTwoAcknowledgements() ? GoesOn() : Fails(kSilence);
  }

  [[nodiscard]] Told OfWrongSequence() const {
    if (IsHsm()) return GoesOn();  // these are known by their command alone
    // Taken for the second acknowledgement, so that the true second one is left for the next command to find.
    if (IsFirstOfTwoAcknowledgements()) return Fails("Received incorrect command ID from SACI.");
    return Fails(IsStream() ? "Received unexpected sequence number from SACI during flash programming"
                            : "Received unexpected sequence number from SACI.");
  }

  [[nodiscard]] Told OfResult(unsigned result) const {
    const std::string text = ResultTexts().at(result);
    switch (id) {
      case kNop:
      case kResetDevice: return GoesOn();
      case kRequestPasswordId:
        if (result == 134) return IsLoad() ? GoesOnReporting(kRamNotWritten) : GoesOn();
        return GoesOnReporting("Requesting debug password ID failed. Error: " + text);
      case kSubmitPassword: return GoesOnReporting("Debug authentication failed. Error: " + text);
      case kExitHalt:
        if (result == 134)
          return GoesOnReporting(
              "Halting at entry of application is not allowed. Are you sure debugging is allowed?");
        [[fallthrough]];
      case kExitRun: return Fails("Error when exiting the boot code - " + text);
      case kEraseChip: return Fails("Error occurred when erasing the chip - " + text);
      case kProgramCcfg: return Fails("Error when programming CCFG - " + text);
      case kProgramPipelined: return Fails("Received response from SACI with unsuccesfull result");
      case kVerifyMain:
        if (name != "BlankCheck") return Fails("Error when verifying flash - " + text);
        return result == 137 ? GoesOn() : Fails("Error performing blank check on MAIN flash bank - " + text);
      case kVerifyCcfg:
        if (name != "BlankCheck") return Fails("Error when verifying CCFG - " + text);
        return result == 137 ? GoesOn() : Fails("Error performing blank check on CCFG sector- " + text);
      case kProgramOtp: return Fails("Error when programming OTP - " + text);
      case kProgramScfg: return Fails("Error when programming SCFG - " + text);
      case kVerifyScfg: return Fails("Error when verifying SCFG - " + text);
      case kProgramHsm: return OfHsmResult(result);
      case kReadHsmInfo:
        return Fails(result == 142 ? "HSM failed to boot. Make sure to program a valid HSM image under the "
                                     "\"HSM Image\" section."
                                   : text);
      case kReadHsmStatus: return Fails("Failed to read HSM FW Update Status from target");
      default: ADD_FAILURE() << "nothing is said of command " << int{id}; return {};
    }
  }

  static Told OfHsmResult(unsigned result) {
    switch (result) {
      case 130: return Fails("Invalid HSM FW image size");
      case 132: return Fails("HSM FW update failed");
      case 142: return Fails("HSM FW has been updated but HSM failed to boot");
      case 143: return Fails("HSM FW image header is invalid");
      case 144: return Fails("Incorrect HSM FW version");
      case 145: return Fails("HSM FW image failed to be verified");
      case 255: return Fails("HSM Command Failed");
      default: return GoesOn();
    }
  }

  [[nodiscard]] Told OfCount(unsigned count) const {
    if (count > 32) return Fails(kTooManyWords);
    switch (id) {
      case kProgramPipelined:
      case kProgramHsm:
        return count == 0 ? GoesOn() : Fails("Received response from SACI with non-zero data word count");
      case kReadHsmInfo: return Fails("Received response from SACI with unexpected data word count");
      case kReadHsmStatus:
        return count == 1 ? GoesOn() : Fails("Received response from SACI with unexpected data word count");
      case kRequestPasswordId:  // no id, no password, no way to the RAM
        return IsLoad() ? GoesOnReporting(kRamNotWritten) : GoesOn();
      case kEraseChip:
        if (name == "Erase" || count == 5) return GoesOn();
        // Nothing seems to be retained then, and what is retained meets the image's own bytes.
        if (count == 0)
          return IsLoad()
                     ? Fails("Error when verifying flash - Calculated CRC32 does not match expected CRC32")
                     : GoesOn();
        return Fails(
            "Unexpected size of 'ccfg.flashProt.chipEraseRetain' returned from device. Expected 2 or 3 "
            "32-bit words (32-bit), but received " +
            std::to_string(count) + " 32-bit words.");
      default: return GoesOn();
    }
  }

  const std::string& name;
  std::uint8_t id;
  unsigned number;  // of the answer, among those to the same command
  host::HsmForm hsm;
};

// How many answers to each command an undisturbed run brings.
std::map<std::uint8_t, unsigned> AnswersOf(SweepBench& sweep, const Action& action) {
  sweep.PutChipBack();
  Attempt attempt(sweep.bench, sweep.plan);
  action.prepare(attempt);
  const std::size_t before = attempt.services.Commands().size();
  EXPECT_EQ(ErrorOf([&] { action.run(attempt); }).value_or("ok"), "ok");
  std::map<std::uint8_t, unsigned> answers;
  const std::vector<std::uint8_t>& commands = attempt.services.Commands();
  for (std::size_t i = before; i < commands.size(); ++i) ++answers[commands[i]];
  if (answers.contains(kProgramPipelined)) ++answers[kProgramPipelined];  // one block has two sectors
  return answers;
}

class ChipFaultSweep : public testing::TestWithParam<std::string> {};

TEST_P(ChipFaultSweep, EveryWrongAnswerIsToldAndTheNextLoadRecovers) {
  SweepBench sweep(GetParam());
  const std::vector<ChipFault> faults = AllFaults();
  for (const Action& action : sweep.Actions()) {
    unsigned swept = 0;
    for (const auto& [command, answers] : AnswersOf(sweep, action)) {
      for (unsigned nth = 1; nth <= answers; ++nth, ++swept) {
        const Expectation expected(action, command, nth, sweep.bench.device.chip.hsm);
        for (const ChipFault& fault : faults) {
          const std::string text =
              "saci:" + std::to_string(command) + ":nth=" + std::to_string(nth) + ":" + fault.Text();
          SCOPED_TRACE(action.name + ", " + text);
          sweep.PutChipBack();
          Attempt attempt(sweep.bench, sweep.plan);
          action.prepare(attempt);
          sweep.bench.Chip().AskedFaults().Add(text);
          const Told told = expected.Of(fault);
          EXPECT_EQ(ErrorOf([&] { action.run(attempt); }).value_or("ok"), told.error.value_or("ok"));
          if (told.reported) {
            EXPECT_THAT(attempt.errors, testing::Contains(*told.reported));
          }
          EXPECT_EQ(attempt.services.BrokenPromise(), "");
          sweep.bench.Chip().AskedFaults() = {};
          sweep.ExpectNextLoadRecovers(attempt);
          if (HasFailure()) return;
        }
      }
    }
    if (swept == 0) continue;
    std::printf("[ sweep ] %s %s: %u answers of the chip x %zu faults\n", GetParam().c_str(),
                action.name.c_str(), swept, faults.size());
  }
}

INSTANTIATE_TEST_SUITE_P(Devices, ChipFaultSweep,
                         testing::Values("serin-s20", "corvel-h40-rev2", "corvel-m30"), DeviceCaseName);

}  // namespace
