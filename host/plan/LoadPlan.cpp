#include "host/plan/LoadPlan.h"

#include <algorithm>
#include <numeric>

namespace host {

namespace {

constexpr std::uint8_t kFill = 0xFF;  // what erased flash reads

}  // namespace

std::size_t ImageBlock::ImageBytes() const {
  return std::accumulate(given.begin(), given.end(), std::size_t{0},
                         [](std::size_t sum, AddressRange range) { return sum + range.size; });
}

void ImageBlock::Append(std::uint32_t at, std::span<const std::uint8_t> bytes) {
  FillUpTo(at);
  data.insert(data.end(), bytes.begin(), bytes.end());
  const auto size = static_cast<std::uint32_t>(bytes.size());
  if (given.empty() || given.back().End() != at)
    given.push_back({at, size});
  else
    given.back().size += size;
}

void ImageBlock::FillUpTo(std::uint64_t end) {
  data.resize(static_cast<std::size_t>(end - address), kFill);
}

bool LoadPlan::Has(Region region) const {
  return Find(region) != nullptr;
}

const ImageBlock* LoadPlan::Find(Region region) const {
  const auto found = std::find_if(blocks.begin(), blocks.end(),
                                  [&](const ImageBlock& block) { return block.region == region; });
  return found == blocks.end() ? nullptr : &*found;
}

std::size_t LoadPlan::ImageBytes(Region region) const {
  std::size_t bytes = 0;
  for (const ImageBlock& block : blocks)
    if (block.region == region) bytes += block.ImageBytes();
  return bytes;
}

}  // namespace host
