#include "host/check/ExpectedChip.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <span>

#include "host/check/CheckImage.h"
#include "host/plan/EraseChoice.h"
#include "host/plan/LoadMode.h"
#include "host/plan/SectorsLeftOut.h"

namespace host {

namespace {

using Bytes = std::vector<std::uint8_t>;
using simulator::ChipState;

// What the plan has for MAIN flash, sector by sector.
struct PlannedMain {
  Bytes bytes;
  std::vector<bool> isTouched;
};

std::span<std::uint8_t> Sector(Bytes& main, const ChipFacts& facts, std::size_t sector) {
  return std::span(main).subspan(sector * facts.sectorSize, facts.sectorSize);
}

PlannedMain MainOf(const LoadPlan& plan, const ChipFacts& facts) {
  PlannedMain main{Bytes(facts.mainSize, kErased), std::vector<bool>(facts.mainSize / facts.sectorSize)};
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Main) continue;
    std::ranges::copy(block.data, main.bytes.begin() + block.address);
    const std::size_t last = (block.End() - 1) / facts.sectorSize;
    for (std::size_t sector = block.address / facts.sectorSize; sector <= last; ++sector)
      main.isTouched[sector] = true;
  }
  return main;
}

void LeaveOut(PlannedMain& main, const ChipFacts& facts, const PropertyStore& settings) {
  const bool leavesListed = settings.IsOn("FlashPageToggle");
  const bool leavesFilled = settings.IsOn("FlashPagesFilledWith");
  const std::size_t sectors = main.isTouched.size();
  const std::vector<bool> listed = ReadSectorList(settings.Get("FlashPages"), sectors).isListed;
  const std::uint8_t fill = ReadFillByte(settings.Get("FlashPagesFilledWithValue")).value;
  const auto isFilled = [&](std::size_t sector) {
    return std::ranges::all_of(Sector(main.bytes, facts, sector),
                               [&](std::uint8_t byte) { return byte == fill; });
  };
  for (std::size_t sector = 0; sector < sectors; ++sector)
    if ((leavesListed && listed[sector]) || (leavesFilled && isFilled(sector)))
      main.isTouched[sector] = false;
}

Bytes LoadedCcfg(Bytes ccfg, const ChipFacts& facts, const PropertyStore& settings) {
  if (settings.IsOn("CcfgOverwriteAuthorizationFieldsToggle")) {
    const std::string type = settings.Get("CcfgOverwriteAuthorizationFieldsTypeChoicelist");
    std::uint8_t& inCcfg = ccfg[facts.authorizationTypeOffset];
    inCcfg = type.ends_with("allowed") ? CheckImage::kDebugOpen : CheckImage::kDebugByPassword;
    if (type == "Debug not allowed") inCcfg = CheckImage::kDebugClosed;
    if (inCcfg == CheckImage::kDebugByPassword) {
      std::ranges::copy(FromHex(settings.Get("CcfgOverwriteAuthorizationFieldsPasswordId")),
                        ccfg.begin() + facts.authorizationIdOffset);
      std::ranges::copy(FromHex(settings.Get("CcfgOverwriteAuthorizationFieldsPasswordHash")),
                        ccfg.begin() + facts.authorizationHashOffset);
    }
  }
  if (settings.IsOn("CcfgOverwriteCrcsToggle")) ccfg = CcfgWithCrcs(facts, ccfg);
  return settings.IsOn("CcfgSkipProgrammingUserRecord") ? WithoutUserRecord(facts, ccfg) : ccfg;
}

// Such a load has no way to RAM.
bool ClosesDebugging(const LoadPlan& plan, const ChipFacts& facts, const PropertyStore& settings) {
  const ImageBlock* const ccfg = plan.Find(Region::Ccfg);
  return ccfg != nullptr &&
         LoadedCcfg(ccfg->data, facts, settings)[facts.authorizationTypeOffset] == CheckImage::kDebugClosed;
}

void LoadBlock(ChipState& chip, const ImageBlock& block, const ChipFacts& facts,
               const PropertyStore& settings) {
  const auto lay = [&](Bytes& region, std::uint32_t base) {
    std::ranges::copy(block.data, region.begin() + (block.address - base));
  };
  switch (block.region) {
    case Region::Ccfg: chip.ccfg = LoadedCcfg(block.data, facts, settings); break;
    case Region::UserRecord: lay(chip.ccfg, facts.ccfg.base); break;
    case Region::Scfg:
      chip.scfg = settings.IsOn("ScfgOverwriteCrcsToggle") ? ScfgWithCrc(facts, block.data) : block.data;
      break;
    case Region::Otp:
      for (const AddressRange& given : block.given)
        std::copy_n(block.data.begin() + (given.base - block.address), given.size,
                    chip.otp.begin() + (given.base - facts.otp.base));
      break;
    case Region::Ram: lay(chip.ram, facts.ram.base); break;
    case Region::Main:
    case Region::Outside: break;
  }
}

std::string DifferenceOf(const char* name, const Bytes& is, const Bytes& expected) {
  if (is == expected) return "";  // looked at a thousand times for once that it differs
  const auto [at, wanted] = std::mismatch(is.begin(), is.end(), expected.begin(), expected.end());
  const auto wrong = std::inner_product(is.begin(), is.end(), expected.begin(), std::size_t{}, std::plus<>(),
                                        std::not_equal_to<>());
  return fmt::format("{} holds 0x{:02x} at 0x{:x} instead of 0x{:02x}{}; ", name, *at, at - is.begin(),
                     *wanted, wrong == 1 ? "" : fmt::format(", and {} bytes more are wrong", wrong - 1));
}

}  // namespace

ChipState ChipAfterErase(ChipState chip, const ChipFacts& facts, MarkedSectors marked) {
  const std::vector<bool> isMarked = KeptSectors(facts, chip.ccfg);
  for (std::size_t sector = 0; sector < isMarked.size(); ++sector)
    if (marked == MarkedSectors::Erased || !isMarked[sector])
      std::ranges::fill(Sector(chip.main, facts, sector), kErased);
  std::ranges::fill(chip.ccfg, kErased);
  std::ranges::fill(chip.scfg, kErased);
  return chip;
}

ChipState ChipAfterLoad(ChipState chip, const LoadPlan& plan, const DeviceDescription& device,
                        const PropertyStore& settings) {
  if (ModeOf(settings) == LoadMode::Verify) return chip;
  const ChipFacts& facts = device.chip;
  const EraseChoice erase = EraseOf(plan, settings);
  const ChipState before = chip;
  if (erase.erases)
    chip = ChipAfterErase(std::move(chip), facts,
                          erase.keepsMarkedSectors ? MarkedSectors::Kept : MarkedSectors::Erased);
  if (!erase.erasesConfiguration) {
    chip.ccfg = before.ccfg;
    chip.scfg = before.scfg;
  }
  PlannedMain main = MainOf(plan, facts);
  LeaveOut(main, facts, settings);
  const std::vector<bool> isMarked = KeptSectors(facts, before.ccfg);
  for (std::size_t sector = 0; sector < isMarked.size(); ++sector) {
    const bool isKept = erase.keepsMarkedSectors && isMarked[sector];
    if (main.isTouched[sector] && !isKept)
      std::ranges::copy(Sector(main.bytes, facts, sector), Sector(chip.main, facts, sector).begin());
  }
  for (const ImageBlock& block : plan.blocks) {
    const bool isConfiguration = block.region == Region::Ccfg || block.region == Region::Scfg;
    const bool isOutOfReach = block.region == Region::Ram && ClosesDebugging(plan, facts, settings);
    if (!(isConfiguration && erase.keepsConfiguration) && !isOutOfReach)
      LoadBlock(chip, block, facts, settings);
  }
  return chip;
}

ChipState ChipBeforeLoad(ChipState blank, const LoadPlan& plan, const ChipFacts& facts,
                         const PropertyStore& settings) {
  const Bytes noise = Noise(facts.mainSize, 901);
  if (EraseOf(plan, settings).erases) {
    const CheckImage earlier(facts, 900, CheckImage::Extent::Small);
    blank.main = noise;
    blank.ccfg = CcfgWithCrcs(facts, earlier.ccfg);
    blank.scfg = ScfgWithCrc(facts, earlier.scfg);
    return blank;
  }
  const PlannedMain main = MainOf(plan, facts);
  for (std::size_t at = 0; at < noise.size(); ++at)
    if (!main.isTouched[at / facts.sectorSize]) blank.main[at] = noise[at];
  return blank;
}

std::string Difference(const ChipState& is, const ChipState& expected) {
  std::string text = DifferenceOf("MAIN", is.main, expected.main) +
                     DifferenceOf("CCFG", is.ccfg, expected.ccfg) +
                     DifferenceOf("SCFG", is.scfg, expected.scfg) +
                     DifferenceOf("OTP", is.otp, expected.otp) + DifferenceOf("RAM", is.ram, expected.ram);
  if (text.empty() && is != expected) return "HSM or life cycle is another";
  return text.substr(0, text.size() < 2 ? 0 : text.size() - 2);
}

}  // namespace host
