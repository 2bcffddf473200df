#include <stdexcept>

#include "FlashDeviceTovik.h"
#include "PermissionList.h"

void FlashDeviceTovik::CheckPermissions(const std::uint8_t* data, int length,
                                        const std::string& listProperty) const {
  const auto list = GetProperty<std::string>(listProperty);
  const std::string region =
      listProperty == "CcfgPermissions" ? "Custom Configuration (CCFG)" : "Security Configuration (SCFG)";
  const std::string objections = PermissionObjections(list, region, {data, static_cast<std::size_t>(length)});
  if (!objections.empty()) throw std::runtime_error(objections);
}
