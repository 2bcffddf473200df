#pragma once

#include <string>
#include <vector>

namespace host {

// The sectors of which `isMeant` is true: "0, 32..159". Empty when there is none.
std::string SectorNumbers(const std::vector<bool>& isMeant);

}  // namespace host
