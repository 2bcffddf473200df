#include "host/report/ConfigurationFields.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "host/device/Number.h"
#include "host/plan/Crc32.h"
#include "host/plan/PermissionCheck.h"
#include "host/report/SectorNumbers.h"

namespace host {

namespace {

using Sector = std::span<const std::uint8_t>;
using Fields = std::vector<ConfigurationField>;

constexpr std::uint8_t kDebugOpen = 0x5A;
constexpr std::uint8_t kDebugByPassword = 0xA5;

bool IsBlank(Sector sector) {
  return std::all_of(sector.begin(), sector.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

std::uint32_t WordAt(Sector sector, std::size_t offset) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) word |= std::uint32_t{sector[offset + i]} << (8 * i);
  return word;
}

void AddPermissions(Fields& fields, std::uint32_t base, Sector sector, const std::string& list) {
  for (const Permission& permission : PermissionsIn(list, sector))
    fields.push_back(
        {std::string(permission.name), base + permission.offset, fmt::format("0x{:x}", permission.held),
         permission.held == permission.safe ? "allowed"
                                            : fmt::format("not 0x{:x}: locked", permission.safe)});
}

// The properties "NAMEInfo" of the listed names are "offset:length" of what the CRC covers.
void AddCrcWords(Fields& fields, std::uint32_t base, Sector sector, const PropertyStore& settings,
                 std::string_view names) {
  while (!names.empty()) {
    const std::string name(names.substr(0, names.find(',')));
    names.remove_prefix(std::min(name.size() + 1, names.size()));
    const std::string covered = settings.Get(name + "Info");
    const std::size_t colon = std::min(covered.find(':'), covered.size());
    const auto offset = ParseHexNumber(covered.substr(0, colon));
    const auto length = ParseHexNumber(covered.substr(std::min(colon + 1, covered.size())));
    if (!offset || !length || *offset > sector.size() || *length > sector.size() - *offset ||
        sector.size() - *offset - *length < 4)
      continue;
    const std::uint32_t stored = WordAt(sector, *offset + *length);
    const bool isRight = Crc32(sector.subspan(*offset, *length)) == stored;
    fields.push_back({name, base + static_cast<std::uint32_t>(*offset + *length),
                      fmt::format("0x{:08x}", stored),
                      isRight                                         ? "right"
                      : IsBlank(sector.subspan(*offset, *length + 4)) ? "blank"
                                                                      : "wrong"});
  }
}

void AddAuthorization(Fields& fields, const DeviceDescription& device, Sector ccfg) {
  const std::uint32_t base = device.map.ccfg.base;
  const std::uint32_t offset = device.chip.authorizationTypeOffset;
  if (offset >= ccfg.size()) return;
  const std::uint8_t type = ccfg[offset];
  fields.push_back({"debug authorization", base + offset, fmt::format("0x{:02x}", type),
                    type == kDebugOpen         ? "debugging is always allowed"
                    : type == kDebugByPassword ? "debugging takes the password"
                                               : "debugging is not allowed"});
  const std::uint32_t id = device.chip.authorizationIdOffset;
  if (type == kDebugByPassword && id + 8 <= ccfg.size())
    fields.push_back({"password identifier", base + id,
                      fmt::format("{:02x}", fmt::join(ccfg.subspan(id, 8), "")),
                      "of the password to be given"});
}

// A bit of the first word keeps one of the sectors 0 to 31, one of the further words a group of eight.
void AddRetained(Fields& fields, const DeviceDescription& device, Sector ccfg) {
  constexpr std::size_t kGroup = 8;
  const std::size_t offset = device.chip.retainOffset;
  const std::size_t words = device.chip.retainWords;
  if (words == 0 || offset + 4 * words > ccfg.size()) return;
  std::vector<std::string> value;
  std::vector<bool> kept(device.map.main.size / device.map.sectorSize);
  const auto keep = [&](std::size_t first, std::size_t count) {
    for (std::size_t sector = first; sector < std::min(first + count, kept.size()); ++sector)
      kept[sector] = true;
  };
  for (std::size_t i = 0; i < words; ++i)
    value.push_back(fmt::format("0x{:08x}", WordAt(ccfg, offset + 4 * i)));
  const unsigned shift = device.chip.retainGroupShift;
  for (unsigned bit = 0; bit < 32; ++bit) {
    const auto isSet = [&](std::size_t word) {
      return word < words && (WordAt(ccfg, offset + 4 * word) >> bit & 1) != 0;
    };
    if (isSet(0)) keep(bit, 1);
    if (bit >= shift && bit < shift + 28 && isSet(1)) keep(32 + kGroup * (bit - shift), kGroup);
    if (words == 3 && isSet(2)) keep(256 + kGroup * bit, kGroup);
  }
  const std::string numbers = SectorNumbers(kept);
  fields.push_back({"sectors to keep", device.map.ccfg.base + static_cast<std::uint32_t>(offset),
                    fmt::format("{}", fmt::join(value, " ")),
                    numbers.empty() ? "none" : numbers + ", by an erase that keeps what is marked"});
}

}  // namespace

Fields ConfigurationFields(const DeviceDescription& device, const PropertyStore& settings,
                           const Configuration& configuration) {
  Fields fields;
  if (const Sector ccfg = configuration.ccfg; !IsBlank(ccfg)) {
    const std::uint32_t base = device.map.ccfg.base;
    AddPermissions(fields, base, ccfg, settings.Get("CcfgPermissions"));
    AddAuthorization(fields, device, ccfg);
    AddRetained(fields, device, ccfg);
    if (configuration.isOnChip) AddCrcWords(fields, base, ccfg, settings, settings.Get("CcfgCrcFields"));
  }
  if (const Sector scfg = configuration.scfg; !IsBlank(scfg)) {
    const std::uint32_t base = device.map.scfg.base;
    AddPermissions(fields, base, scfg, settings.Get("ScfgPermissions"));
    if (configuration.isOnChip) AddCrcWords(fields, base, scfg, settings, settings.Get("ScfgCrcFields"));
  }
  return fields;
}

}  // namespace host
