#include "host/check/CheckReport.h"

#include <algorithm>

namespace host {

template <std::size_t size>
void CheckReport::Text<size>::Set(std::string_view text) {
  length = std::min(text.size(), size);
  std::copy_n(text.begin(), length, characters);
}

void CheckReport::At(std::string_view newPlace) {
  ++signs;
  place.Set(newPlace);
  step = {};
}

void CheckReport::Step(std::string_view newStep) {
  ++signs;
  step.Set(newStep);
}

void CheckReport::Find(std::string_view text) {
  ++signs;
  if (found < kKept) {
    entries[found].place = place;
    entries[found].text.Set(text);
  }
  ++found;
}

}  // namespace host
