#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "SweepBench.h"

// Every answer of the chip gone wrong in every way: what is told is what belongs to the command, and the next
// load makes the chip right.

namespace {

const std::map<unsigned, std::string> s_results = {
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

std::vector<std::string> AllFaults() {
  std::vector<std::string> faults = {"count=0",  "count=1",   "count=4",  "count=5",   "count=32",
                                     "count=33", "count=255", "late=600", "late=3000", "late=7000",
                                     "wrong-id", "wrong-seq", "lost",     "hang"};
  for (const auto& [result, text] : s_results) faults.push_back("result=" + std::to_string(result));
  return faults;
}

enum Command : std::uint8_t {
  kNop = 1,
  kRequestPasswordId = 5,
  kSubmitPassword = 6,
  kExitHalt = 7,
  kEraseChip = 9,
  kProgramCcfg = 12,
  kProgramUserRecord = 13,
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

// What stands before the reason of a refusal.
const std::map<unsigned, std::string> s_refusals = {
    {kExitHalt, "Error when exiting the boot code - "},
    {kExitRun, "Error when exiting the boot code - "},
    {kEraseChip, "Error occurred when erasing the chip - "},
    {kProgramCcfg, "Error when programming CCFG - "},
    {kProgramUserRecord, "Error when programming CCFG user record - "},
    {kVerifyMain, "Error when verifying flash - "},
    {kVerifyCcfg, "Error when verifying CCFG - "},
    {kProgramOtp, "Error when programming OTP - "},
    {kProgramScfg, "Error when programming SCFG - "},
    {kVerifyScfg, "Error when verifying SCFG - "},
};

// The whole text; all other results of these commands are passed over.
const std::map<unsigned, std::string> s_hsmRefusals = {
    {130, "Invalid HSM FW image size"},
    {132, "HSM FW update failed"},
    {142, "HSM FW has been updated but HSM failed to boot"},
    {143, "HSM FW image header is invalid"},
    {144, "Incorrect HSM FW version"},
    {145, "HSM FW image failed to be verified"},
    {255, "HSM Command Failed"},
};

constexpr char kSilence[] = "Timeout when waiting for SEC-AP RX data to be ready.";
constexpr char kUnexpectedCount[] = "Received response from SACI with unexpected data word count";
constexpr char kWrongId[] = "Received incorrect command ID from SACI.";
constexpr char kRamNotWritten[] =
    "Debugging is not allowed, or has not been authorized. Data will not be written to RAM.";

// What becomes of an action: the error that ends it, or "ok", and then perhaps an error that is reported
// while it goes on.
struct Told {
  std::string error = "ok";
  std::string reported;
};
Told GoesOn() {
  return {};
}
Told Fails(const std::string& text) {
  return {.error = text, .reported = {}};
}
Told GoesOnReporting(const std::string& text) {
  return {.error = "ok", .reported = text};
}

// The nth answer to a command, in an action on a device.
struct Answer {
  std::string action;
  std::uint8_t command;
  unsigned nth;
  host::HsmForm hsm;

  [[nodiscard]] bool IsStream() const { return command == kProgramPipelined; }
  [[nodiscard]] bool IsHsm() const { return command >= kProgramHsm; }
  [[nodiscard]] bool IsLoad() const { return action == "load"; }
  [[nodiscard]] bool IsBlankCheck() const { return action == "BlankCheck"; }
  // The second block of the load is the one with two sectors, each of which the chip acknowledges.
  [[nodiscard]] bool IsFirstOfTwo() const { return IsStream() && nth == 2; }
  [[nodiscard]] unsigned PatienceMs() const {
    return IsStream() || command == kReadHsmInfo || command == kReadHsmStatus ? 1000 : 5000;
  }
};

Told OfWrongSequence(const Answer& answer) {
  if (answer.IsHsm()) return GoesOn();  // these are known by their command alone
  // Taken for the second acknowledgement, so that the true second one is left for the next command to find.
  if (answer.IsFirstOfTwo()) return Fails(kWrongId);
  return Fails(answer.IsStream() ? "Received unexpected sequence number from SACI during flash programming"
                                 : "Received unexpected sequence number from SACI.");
}

Told OfResult(const Answer& answer, unsigned result) {
  const std::string& reason = s_results.at(result);
  const bool isRestricted = result == 134;
  switch (answer.command) {
    case kNop:
    case kResetDevice: return GoesOn();
    case kRequestPasswordId:
      if (isRestricted) return answer.IsLoad() ? GoesOnReporting(kRamNotWritten) : GoesOn();
      return GoesOnReporting("Requesting debug password ID failed. Error: " + reason);
    case kSubmitPassword: return GoesOnReporting("Debug authentication failed. Error: " + reason);
    case kExitHalt:
      if (!isRestricted) break;
      return GoesOnReporting(
          "Halting at entry of application is not allowed. Are you sure debugging is allowed?");
    case kProgramPipelined: return Fails("Received response from SACI with unsuccesfull result");
    case kVerifyMain:
    case kVerifyCcfg:
      if (!answer.IsBlankCheck()) break;
      if (result == 137) return GoesOn();
      return Fails("Error performing blank check on " +
                   std::string(answer.command == kVerifyMain ? "MAIN flash bank - " : "CCFG sector- ") +
                   reason);
    case kProgramHsm: return s_hsmRefusals.contains(result) ? Fails(s_hsmRefusals.at(result)) : GoesOn();
    case kReadHsmInfo:
      if (result != 142) return Fails(reason);
      return Fails(
          "HSM failed to boot. Make sure to program a valid HSM image under the \"HSM Image\" section.");
    case kReadHsmStatus: return Fails("Failed to read HSM FW Update Status from target");
    default: break;
  }
  return Fails(s_refusals.at(answer.command) + reason);
}

Told OfCount(const Answer& answer, unsigned count) {
  if (count > 32) return Fails("Received response from SACI with too many data words");
  switch (answer.command) {
    case kProgramPipelined:
    case kProgramHsm:
      return count == 0 ? GoesOn() : Fails("Received response from SACI with non-zero data word count");
    case kReadHsmInfo: return Fails(kUnexpectedCount);
    case kReadHsmStatus: return count == 1 ? GoesOn() : Fails(kUnexpectedCount);
    case kRequestPasswordId:  // no id, no password, no way to the RAM
      return answer.IsLoad() ? GoesOnReporting(kRamNotWritten) : GoesOn();
    case kEraseChip:
      if (answer.action == "Erase" || count == 5) return GoesOn();
      // Nothing seems to be retained then, and what is retained meets the image's own bytes.
      if (count == 0)
        return answer.IsLoad() ? Fails(s_refusals.at(kVerifyMain) + s_results.at(135)) : GoesOn();
      return Fails(
          "Unexpected size of 'ccfg.flashProt.chipEraseRetain' returned from device. Expected 2 or 3 32-bit "
          "words (32-bit), but received " +
          std::to_string(count) + " 32-bit words.");
    default: return GoesOn();
  }
}

Told ExpectationOf(const Answer& answer, const std::string& fault) {
  if (answer.action == "SaciAppResetDevice without answer" && answer.command == kResetDevice) return GoesOn();
  const std::size_t equals = fault.find('=');
  const std::string kind = fault.substr(0, equals);
  const auto value =
      equals == std::string::npos ? 0U : static_cast<unsigned>(std::stoul(fault.substr(equals + 1)));
  if (kind == "result") return OfResult(answer, value);
  if (kind == "count") return OfCount(answer, value);
  if (kind == "late") return value < answer.PatienceMs() ? GoesOn() : Fails(kSilence);
  if (kind == "wrong-seq") return OfWrongSequence(answer);
  if (kind == "wrong-id")
    return Fails(answer.IsStream() || answer.IsHsm()
                     ? "Received response from SACI with unexpected command id"
                     : kWrongId);
  // The second acknowledgement, if it is there, stands for both.
  if (kind == "lost") return answer.IsFirstOfTwo() ? GoesOn() : Fails(kSilence);
  // The work on the last record of an image then never ends.
  return Fails(answer.command == kProgramHsm && answer.hsm == host::HsmForm::Records
                   ? "Timeout when waiting for SACI to clear the CMD_WORKING flag."
                   : kSilence);
}

// How many answers to each command an undisturbed run brings.
std::map<std::uint8_t, unsigned> AnswersOf(SweepBench& sweep, const Action& action) {
  sweep.PutChipBack();
  Attempt attempt(sweep.bench);
  action.prepare(attempt);
  const std::size_t before = attempt.services.Exchanges().size();
  EXPECT_EQ(ErrorOf([&] { action.run(attempt); }), "ok");
  std::map<std::uint8_t, unsigned> answers;
  for (const host::SaciExchange& exchange : attempt.services.Exchanges().subspan(before))
    answers[exchange.command] += std::max(1U, exchange.sectorsAcknowledged);
  return answers;
}

class ChipFaultSweep : public testing::TestWithParam<SweepCase> {};

TEST_P(ChipFaultSweep, EveryWrongAnswerIsToldAndTheNextLoadRecovers) {
  constexpr unsigned kStep = kSampled ? 8 : 1;
  SweepBench sweep(GetParam());
  unsigned answersSeen = 0;
  unsigned faultsSeen = 0;
  for (const Action& action : sweep.Actions())
    for (const auto& [command, answers] : AnswersOf(sweep, action))
      for (unsigned nth = 1; nth <= answers; ++nth) {
        if (answersSeen++ % kStep != 0) continue;
        const Answer answer{action.name, command, nth, sweep.bench.device.chip.hsm};
        for (const std::string& fault : AllFaults()) {
          const std::string text =
              "saci:" + std::to_string(command) + ":nth=" + std::to_string(nth) + ":" + fault;
          SCOPED_TRACE(action.name + ", " + text);
          sweep.PutChipBack();
          Attempt attempt(sweep.bench);
          action.prepare(attempt);
          sweep.bench.Chip().AskedFaults().Add(text);
          const Told told = ExpectationOf(answer, fault);
          EXPECT_EQ(ErrorOf([&] { action.run(attempt); }), told.error);
          if (!told.reported.empty()) {
            EXPECT_THAT(attempt.errors, testing::Contains(told.reported));
          }
          sweep.bench.Chip().AskedFaults() = {};
          sweep.ExpectNextLoadRecovers(attempt);
          if (HasFailure()) return;
          ++faultsSeen;
        }
      }
  const std::map<std::string, unsigned> least = {
      {"serin-s20", 1890}, {"corvel-h40-rev2", 1715}, {"corvel-m30", 1820}};
  ExpectSwept(GetParam().device, "faults of the chip", faultsSeen, least.at(GetParam().device));
}

INSTANTIATE_TEST_SUITE_P(Devices, ChipFaultSweep, testing::ValuesIn(kSweepCases), SweepCaseName);

}  // namespace
