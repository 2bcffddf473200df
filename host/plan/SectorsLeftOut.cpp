#include "host/plan/SectorsLeftOut.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <limits>

namespace host {

namespace {

bool HoldsOnly(std::string_view text, std::string_view allowed) {
  return text.find_first_not_of(allowed) == std::string_view::npos;
}

// Digits only. A number too large for 64 bits is out of every range, too.
std::uint64_t DecimalNumber(std::string_view digits) {
  std::uint64_t number = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc::result_out_of_range ? std::numeric_limits<std::uint64_t>::max() : number;
}

void ReadElement(std::string_view element, SectorList& list) {
  if (!HoldsOnly(element, "0123456789-")) {
    list.error = fmt::format("\"{}\" is neither a sector nor a range of sectors", element);
    return;
  }
  if (element.empty()) list.oddity = "an empty element means sector 0";
  const std::size_t dash = element.find('-');
  const bool isRange = dash != std::string_view::npos;
  const std::string_view firstText = element.substr(0, dash);
  std::string_view lastText = firstText;
  if (isRange) {
    const std::string_view rest = element.substr(dash + 1);
    lastText = rest.substr(0, rest.find('-'));
    if (lastText.size() != rest.size())
      list.oddity = fmt::format("\"{}\" means {}-{}", element, firstText, lastText);
  }
  const std::uint64_t first = DecimalNumber(firstText);
  const std::uint64_t last = DecimalNumber(lastText);
  if (isRange && (firstText.empty() || lastText.empty() || first > last)) {
    list.error = fmt::format("\"{}\" is no range of sectors", element);
  } else if (last >= list.isListed.size()) {
    list.error =
        fmt::format("\"{}\" is out of range: there are {} sectors, from 0", element, list.isListed.size());
  } else {
    for (std::uint64_t sector = first; sector <= last; ++sector)
      list.isListed[static_cast<std::size_t>(sector)] = true;
  }
}

}  // namespace

SectorList ReadSectorList(std::string_view text, std::size_t sectorCount) {
  SectorList list{std::vector<bool>(sectorCount, false), "", ""};
  std::string elements(text);
  std::erase_if(elements, [](unsigned char c) { return std::isspace(c) != 0; });
  if (elements.empty()) {
    list.error = "empty, which would leave out sector 0";
    return list;
  }
  for (std::string_view rest = elements; list.error.empty();) {
    const std::size_t comma = rest.find(',');
    ReadElement(rest.substr(0, comma), list);
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  return list;
}

// The plug-in takes 0x and two digits, or any four such characters with an x among them; of what has no x, it
// takes only texts without a digit, and these are 0.
FillByte ReadFillByte(const std::string& text) {
  constexpr std::string_view kLetters = "abcdefABCDEF";
  const bool hasX = text.find_first_of("xX") != std::string::npos;
  const bool isTaken =
      hasX ? text.size() == 4 && HoldsOnly(text, "0123456789abcdefABCDEFxX") : HoldsOnly(text, kLetters);
  FillByte fill;
  if (!isTaken) {
    fill.error = fmt::format("\"{}\" is not a byte as 0x and two hexadecimal digits", text);
    return fill;
  }
  if (hasX) fill.value = static_cast<std::uint8_t>(std::strtoul(text.c_str(), nullptr, 16));
  const bool isPlain = hasX && text[0] == '0' && text.find_last_of("xX") == 1;
  if (!isPlain) fill.oddity = fmt::format("\"{}\" means 0x{:02x}", text, fill.value);
  return fill;
}

std::string SectorsLeftOut::Settings() const {
  if (listed != 0 && filled != 0) return "FlashPages and FlashPagesFilledWith";
  return listed != 0 ? "FlashPages" : "FlashPagesFilledWith";
}

SectorsLeftOut SectorsLeftOutOf(const LoadPlan& plan, const MemoryMap& map, const PropertyStore& settings) {
  std::vector<bool> isListed(map.main.size / map.sectorSize, false);
  if (settings.IsOn("FlashPageToggle"))
    if (const SectorList list = ReadSectorList(settings.Get("FlashPages"), isListed.size());
        list.error.empty())
      isListed = list.isListed;
  const FillByte fill = ReadFillByte(settings.Get("FlashPagesFilledWithValue"));
  const bool skipsFilled = settings.IsOn("FlashPagesFilledWith") && fill.error.empty();

  SectorsLeftOut count;
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Main) continue;
    for (std::uint64_t sector = block.address / map.sectorSize; sector * map.sectorSize < block.End();
         ++sector) {
      ++count.touched;
      const std::uint64_t begin = std::max<std::uint64_t>(sector * map.sectorSize, block.address);
      const std::uint64_t end = std::min((sector + 1) * map.sectorSize, block.End());
      const bool isWhole = end - begin == map.sectorSize;
      const auto held = std::span(block.data).subspan(begin - block.address, end - begin);
      if (isListed[sector])
        ++count.listed;
      else if (skipsFilled && isWhole &&
               std::all_of(held.begin(), held.end(), [&](std::uint8_t byte) { return byte == fill.value; }))
        ++count.filled;
    }
  }
  return count;
}

}  // namespace host
