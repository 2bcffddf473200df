#include "host/plan/EraseChoice.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/plan/LoadMode.h"

namespace host {

namespace {

struct KnownErase {
  std::string_view name;
  bool erases;
  bool keepsConfiguration;
  bool keepsMarkedSectors;
};
constexpr KnownErase kNoErase{"Do not erase sectors (program load only)", false, false, false};
constexpr KnownErase kChipErase{"Chip Erase", true, false, false};
constexpr KnownErase kRetainMarked{"Chip Erase (retain sectors specified in CCFG)", true, false, true};
constexpr KnownErase kRetainAll{"Retain MAIN sectors and CCFG and SCFG", true, true, true};
constexpr KnownErase kRetainConfiguration{"Retain CCFG and SCFG sectors", true, true, false};
constexpr std::array s_knownErases{kNoErase, kChipErase, kRetainMarked, kRetainAll, kRetainConfiguration};

const KnownErase* FindErase(std::string_view name) {
  const auto* const found = std::find_if(s_knownErases.begin(), s_knownErases.end(),
                                         [&](const KnownErase& known) { return known.name == name; });
  return found == s_knownErases.end() ? nullptr : found;
}

// Older parts have one setting with a choice, newer ones a few switches.
std::string EraseName(const PropertyStore& settings) {
  if (const std::string* choice = settings.Find("FlashEraseSetting")) return *choice;
  if (settings.IsOn("NoFlashErase")) return std::string(kNoErase.name);
  const bool keepsMain = settings.IsOn("RetainMainSectors");
  const KnownErase& erase = settings.IsOn("RetainCcfgScfg") ? (keepsMain ? kRetainAll : kRetainConfiguration)
                                                            : (keepsMain ? kRetainMarked : kChipErase);
  return std::string(erase.name);
}

}  // namespace

EraseChoice ChosenErase(const PropertyStore& settings) {
  EraseChoice choice{.text = EraseName(settings)};
  if (const KnownErase* known = FindErase(choice.text)) {
    choice.erases = known->erases;
    choice.erasesConfiguration = known->erases && !known->keepsConfiguration;
    choice.keepsConfiguration = known->keepsConfiguration;
    choice.keepsMarkedSectors = known->keepsMarkedSectors;
  }
  return choice;
}

bool IsKnownErase(const EraseChoice& choice) {
  return FindErase(choice.text) != nullptr;
}

EraseChoice EraseOf(const LoadPlan& plan, const PropertyStore& settings) {
  if (ModeOf(settings) == LoadMode::Verify) return {};
  const auto first = std::find_if(plan.blocks.begin(), plan.blocks.end(), [](const ImageBlock& block) {
    return block.region != Region::Ram && block.region != Region::Outside;
  });
  if (first == plan.blocks.end() || first->region == Region::UserRecord) return {};
  return ChosenErase(settings);
}

}  // namespace host
