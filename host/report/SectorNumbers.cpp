#include "host/report/SectorNumbers.h"

#include <fmt/format.h>

namespace host {

std::string SectorNumbers(const std::vector<bool>& isMeant) {
  std::string numbers;
  for (std::size_t first = 0; first < isMeant.size(); ++first) {
    if (!isMeant[first]) continue;
    std::size_t last = first;
    while (last + 1 < isMeant.size() && isMeant[last + 1]) ++last;
    numbers += numbers.empty() ? "" : ", ";
    numbers += first == last ? fmt::format("{}", first) : fmt::format("{}..{}", first, last);
    first = last;
  }
  return numbers;
}

}  // namespace host
