#include <stdexcept>

#include "FlashDeviceTovik.h"
#include "PermissionList.h"

void FlashDeviceTovik::CheckPermissions(std::uint8_t const* data, int length,
                                        std::string const& listProperty) const {
  auto const list = GetProperty<std::string>(listProperty);
  std::string const region =
      listProperty == "CcfgPermissions" ? "Custom Configuration (CCFG)" : "Security Configuration (SCFG)";
  std::string const objections = PermissionObjections(list, region, {data, static_cast<std::size_t>(length)});
  if (!objections.empty()) throw std::runtime_error(objections);
}
