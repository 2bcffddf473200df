#include "host/report/ExchangeText.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/report/FailureText.h"
#include "host/report/Format.h"

namespace host {

namespace {

constexpr std::size_t kMostWordsShown = 8;  // a trace has no more of an answer

bool Has(const SaciExchange& exchange, unsigned bit) {
  return (exchange.argument & bit) != 0;
}

// 0 for what is not a number of whole sectors.
std::uint32_t SectorCount(AddressRange range, std::uint32_t sectorSize) {
  const bool isWhole = sectorSize != 0 && range.base % sectorSize == 0 && range.size % sectorSize == 0;
  return isWhole ? range.size / sectorSize : 0;
}

std::string MainText(AddressRange range, std::uint32_t sectorSize) {
  if (SectorCount(range, sectorSize) == 0) return fmt::format("0x{:08x}, {}", range.base, Bytes(range.size));
  LoadFailure place;
  place.range = range;
  place.firstSector = range.base / sectorSize;
  return fmt::format("{} at 0x{:08x}", SectorsText(place, sectorSize), range.base);
}

std::string CcfgComparison(const SaciExchange& exchange) {
  const auto& crc = exchange.parameters;
  std::string text = fmt::format("CRC-32 boot 0x{:08x}, whole 0x{:08x}", crc[0], crc[1]);
  if (!Has(exchange, saci::kBit17)) text += fmt::format(", user record 0x{:08x}", crc[2]);
  return text + fmt::format(", debug 0x{:08x}", crc[3]);
}

// What a verification looks for.
std::string ComparisonText(const SaciExchange& exchange, Detail detail) {
  if (Has(exchange, saci::kBit31)) return "blank check";
  if (!exchange.Compares()) return "comparing nothing";
  if (detail == Detail::Brief && !exchange.HasFailed()) return "";
  if (exchange.command == saci::kVerifyCcfg) return CcfgComparison(exchange);
  return fmt::format("CRC-32 0x{:08x}", exchange.parameters[exchange.command == saci::kVerifyMain ? 2 : 0]);
}

std::string ArgumentText(const SaciExchange& exchange, std::uint32_t sectorSize) {
  switch (exchange.command) {
    case saci::kSubmitPassword: return fmt::format("{} words", exchange.argument);
    case saci::kErase:
    case saci::kEraseKeepingConfiguration:
      return Has(exchange, saci::kBit16) ? "keeping the marked sectors" : "";
    case saci::kProgramCcfg: return Has(exchange, saci::kBit16) ? "all but the user record" : "";
    case saci::kProgramOtp:
    case saci::kProgramScfg: return Bytes(exchange.argument);
    case saci::kProgramSector:
    case saci::kProgramPipelined:
    case saci::kVerifyMain: return MainText(exchange.MainRange(), sectorSize);
    case saci::kUpdateHsm: return fmt::format("{} sent", Bytes(exchange.dataBytes));
    default: return "";
  }
}

// Where a stream ended, when it is not at its end.
std::string AcknowledgedText(const SaciExchange& exchange, std::uint32_t sectorSize) {
  const std::uint32_t sectors = SectorCount(exchange.MainRange(), sectorSize);
  if (!exchange.HasFailed() && exchange.sectorsAcknowledged >= sectors) return "";
  const std::string of = sectors == 0 ? "" : "of " + Grouped(sectors) + " ";
  return fmt::format("{} {}sectors acknowledged, then ", exchange.sectorsAcknowledged, of);
}

std::string AnswerText(const SaciExchange& exchange, std::uint32_t sectorSize) {
  std::string text;
  if (exchange.command == saci::kProgramPipelined) text = AcknowledgedText(exchange, sectorSize);
  if (exchange.isAnswerWrong) return text + "an answer to another command";
  if (!exchange.result) return exchange.HasFailed() ? text + "no answer" : "no answer, and none is due";
  if (exchange.wordsMissing != 0)
    return fmt::format("{} words of the answer not read", exchange.wordsMissing);
  if (*exchange.result != 0)
    return text + fmt::format("0x{:02x}, {}", *exchange.result, SaciResultName(*exchange.result));
  if (!text.empty()) return text + "no answer";
  text = "success";
  const std::size_t shown = std::min(exchange.words.size(), kMostWordsShown);
  for (std::size_t i = 0; i < shown; ++i)
    text += fmt::format("{}{:08x}", i == 0 ? ", words " : " ", exchange.words[i]);
  return text + (shown < exchange.words.size() ? " ..." : "");
}

}  // namespace

std::string ExchangeText(const ToldExchange& told, std::uint32_t sectorSize, Detail detail) {
  const SaciExchange& exchange = told.exchange;
  std::string text = SaciCommandName(exchange.command);
  const auto add = [&](const std::string& more) {
    if (!more.empty()) text += ", " + more;
  };
  add(ArgumentText(exchange, sectorSize));
  if (exchange.command == saci::kVerifyMain || exchange.command == saci::kVerifyCcfg ||
      exchange.command == saci::kVerifyScfg)
    add(ComparisonText(exchange, detail));
  text += ": " + AnswerText(exchange, sectorSize);
  if (told.sleptNs != 0) add("slept " + Duration(told.sleptNs));
  return text;
}

}  // namespace host
