#include "host/plan/SectorsLeftOut.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <optional>

#include "source/SectorList.h"

namespace {

std::string ArbitraryText(const std::string& alphabet) {
  return *rc::gen::container<std::string>(rc::gen::elementOf(alphabet));
}

template <typename Parse>
auto Try(const Parse& parse) -> std::optional<decltype(parse())> {
  try {
    return parse();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// The host must refuse what the plug-in refuses, and read the rest as the plug-in does.
RC_GTEST_PROP(SectorsLeftOutProperty, ListsAreReadAsThePluginReadsThem, ()) {
  const std::string text = ArbitraryText("0123459-,, \tx");
  const auto byPlugin = Try([&] { return ParseSkippedSectors(text, 50); });
  const host::SectorList list = host::ReadSectorList(text, 50);
  const bool isBlank = text.find_first_not_of(" \t") == std::string::npos;  // refused by the host alone
  RC_ASSERT(list.error.empty() == (byPlugin.has_value() && !isBlank));
  if (!list.error.empty()) return;
  for (std::size_t sector = 0; sector < 50; ++sector) RC_ASSERT(list.isListed[sector] != (*byPlugin)[sector]);
}

RC_GTEST_PROP(SectorsLeftOutProperty, FillBytesAreReadAsThePluginReadsThem, ()) {
  const std::string text = ArbitraryText("0019aF0xXg").substr(0, *rc::gen::inRange<std::size_t>(0, 6));
  const auto byPlugin = Try([&] { return ParseFillValue(text); });
  const host::FillByte fill = host::ReadFillByte(text);
  RC_ASSERT(fill.error.empty() == byPlugin.has_value());
  if (byPlugin) RC_ASSERT(fill.value == *byPlugin);
}

}  // namespace
