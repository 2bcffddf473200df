#include "host/plan/PermissionCheck.h"

#include <fmt/format.h>

#include <optional>
#include <span>
#include <string_view>

#include "host/device/Number.h"
#include "host/plan/MemoryText.h"

namespace host {

namespace {

std::vector<std::string_view> Split(std::string_view text, char delimiter) {
  std::vector<std::string_view> pieces;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find(delimiter, at), text.size());
    pieces.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return pieces;
}

std::optional<Permission> ParsePermission(std::string_view entry, std::span<const std::uint8_t> bytes) {
  const std::vector<std::string_view> fields = Split(entry, ':');
  if (fields.size() != 3) return std::nullopt;
  const auto offset = ParseNumber(fields[1].substr(0, 4));
  const auto safe = ParseNumber(fields[2]);
  if (!offset || !safe || *offset == 0 || *offset >= bytes.size()) return std::nullopt;
  const unsigned shift = fields[1].ends_with('H') ? 4 : 0;
  return Permission{.name = fields[0],
                    .offset = static_cast<std::uint32_t>(*offset),
                    .held = unsigned{bytes[static_cast<std::size_t>(*offset)]} >> shift & 0xFU,
                    .safe = static_cast<unsigned>(*safe)};
}

void CheckRegion(const LoadPlan& plan, Region region, const std::string& list, Preflight& found) {
  const ImageBlock* const block = plan.Find(region);
  if (block == nullptr) return;
  std::vector<std::string> objections;
  for (const Permission& permission : PermissionsIn(list, block->data))
    if (permission.held != permission.safe)
      objections.push_back(
          fmt::format("{} is 0x{:x} and not 0x{:x}", permission.name, permission.held, permission.safe));
  if (objections.empty()) return;
  found.refusals.push_back(
      fmt::format("the {} of the images could lock the chip: {} (PermissionsSetting=0 lets it pass)",
                  MemoryTitle(region), fmt::join(objections, ", ")));
}

}  // namespace

std::vector<Permission> PermissionsIn(std::string_view list, std::span<const std::uint8_t> bytes) {
  std::vector<Permission> permissions;
  for (const std::string_view entry : Split(list, ','))
    if (const auto permission = ParsePermission(entry, bytes)) permissions.push_back(*permission);
  return permissions;
}

void CheckPermissions(const LoadPlan& plan, const PropertyStore& settings, Preflight& found) {
  if (settings.Get("PermissionsSetting", "1") != "1") return;
  CheckRegion(plan, Region::Ccfg, settings.Get("CcfgPermissions"), found);
  // The SCFG of older parts goes unchecked; newer ones have a CRC of a name of its own.
  if (settings.Find("scfg2.crc32Info") != nullptr)
    CheckRegion(plan, Region::Scfg, settings.Get("ScfgPermissions"), found);
}

}  // namespace host
