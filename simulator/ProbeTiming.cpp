#include "ProbeTiming.h"

namespace simulator {

std::optional<ProbeTiming> FindProbeTiming(std::string_view name) {
  if (name == "hs") return ProbeTiming{};
  if (name == "fs") return ProbeTiming{.wireHz = 4'000'000, .roundTrip = kMillisecond};
  return std::nullopt;
}

}  // namespace simulator
