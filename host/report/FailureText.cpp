#include "host/report/FailureText.h"

#include <fmt/format.h>

#include "host/plan/MemoryText.h"
#include "host/report/Explanation.h"

namespace host {

namespace {

// Where the same result means something else in another place.
struct PlacedAdvice {
  LoadMode mode;
  Phase phase;
  std::uint8_t result;
  const char* cause;
  const char* remedy;
};
constexpr PlacedAdvice s_placed[] = {
    {LoadMode::Verify, Phase::VerifyMain, saci::kCrcDiffers, "The chip holds other bytes than the images.",
     "Load the images, or verify those that were loaded."},
    {LoadMode::Verify, Phase::Ccfg, saci::kCrcDiffers, "The chip holds another CCFG than the images.",
     "Load the images, with an erase that includes CCFG and SCFG."},
    {LoadMode::Verify, Phase::Scfg, saci::kCrcDiffers, "The chip holds another SCFG than the images.",
     "Load the images, with an erase that includes CCFG and SCFG."},
    {LoadMode::Program, Phase::VerifyMain, saci::kCrcDiffers,
     "The sector does not hold what was programmed: it was not erased before, or a flash cell is worn out.",
     "Load again with \"Chip Erase\". When the same sector fails again, replace the chip."},
    {LoadMode::Program, Phase::Ccfg, saci::kCrcDiffers,
     "The CCFG does not hold what was programmed: it was not erased before, or a flash cell is worn out.",
     "Load again with \"Chip Erase\"."},
    {LoadMode::Program, Phase::Scfg, saci::kCrcDiffers,
     "The SCFG does not hold what was programmed: it was not erased before, or a flash cell is worn out.",
     "Load again with \"Chip Erase\"."},
    {LoadMode::Program, Phase::Otp, 0x84, "OTP has been programmed before, with other data.",
     "What OTP holds can never be changed: load without OTP data, or take another chip."},
};

std::string ResultText(const LoadFailure& failure) {
  if (!failure.command) return "";
  const std::string command = SaciCommandName(*failure.command);
  if (!failure.result) return fmt::format("no valid answer to \"{}\"", command);
  return fmt::format("0x{:02x}, {}, to \"{}\"", *failure.result, SaciResultName(*failure.result), command);
}

}  // namespace

Advice AdviceOn(const LoadRecord& record) {
  if (!record.failure) return {};
  const LoadFailure& failure = *record.failure;
  for (const PlacedAdvice& advice : s_placed)
    if (advice.mode == record.mode && advice.phase == failure.phase && failure.result == advice.result)
      return {advice.cause, advice.remedy};
  std::vector<Explanation> fitting = Explain(failure.text);
  if (fitting.empty() && failure.result) fitting = Explain(std::to_string(*failure.result));
  if (fitting.empty()) return {};
  return {std::string(fitting.front().meaning), std::string(fitting.front().remedy)};
}

std::string SectorsText(const LoadFailure& failure, std::uint32_t sectorSize) {
  if (!failure.firstSector || sectorSize == 0 || failure.range.size == 0) return "";
  const std::uint64_t last = (failure.range.End() - 1) / sectorSize;
  if (last == *failure.firstSector) return fmt::format("sector {}", last);
  return fmt::format("sectors {}..{}", *failure.firstSector, last);
}

std::vector<TitledText> FailureLines(const LoadRecord& record) {
  if (!record.failure) return {};
  const LoadFailure& failure = *record.failure;
  // "verify MAIN", "CCFG": most phases name their region.
  std::string where(failure.phase ? PhaseName(*failure.phase) : "");
  const std::string region = failure.region ? Upper(RegionName(*failure.region)) : std::string();
  if (where.find(region) == std::string::npos) where += ", " + region;
  if (failure.range.size != 0) where += ", " + RangeText(failure.range);
  if (const std::string sectors = SectorsText(failure, record.sectorSize); !sectors.empty())
    where += ", " + sectors;
  const Advice advice = record.isInterrupted ? Advice{} : AdviceOn(record);
  std::vector<TitledText> lines = {
      {"At", where}, {"Chip", ResultText(failure)}, {"Cause", advice.cause}, {"Remedy", advice.remedy}};
  std::erase_if(lines, [](const TitledText& line) { return line.second.empty(); });
  return lines;
}

std::string FailureText(const LoadRecord& record) {
  std::string text;
  for (const auto& [title, what] : FailureLines(record)) text += fmt::format("  {:<10}{}\n", title, what);
  return text;
}

}  // namespace host
