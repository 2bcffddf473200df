#include "host/plan/ImagePlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <string>

#include "host/device/InputError.h"

namespace host {
namespace {

constexpr std::uint8_t kFill = 0xFF;  // what erased flash reads

// A transfer of 32 sectors is 64 KiB: longer ones save no time that could be measured on the faster probe.
constexpr std::size_t kLargestTransfer = 32;

// Bytes of one image at their plain address.
struct Piece {
  std::uint32_t address;
  std::span<const std::uint8_t> data;
  const std::string* image;  // its name

  [[nodiscard]] std::uint64_t End() const { return std::uint64_t{address} + data.size(); }
};

struct MappedRegion {
  Region region;
  AddressRange range;
};

std::vector<MappedRegion> RegionsOf(const MemoryMap& map) {
  std::vector<MappedRegion> regions{{Region::Main, map.main},
                                    {Region::Ccfg, map.ccfg},
                                    {Region::Scfg, map.scfg},
                                    {Region::Otp, map.otp},
                                    {Region::Ram, map.ram}};
  std::erase_if(regions, [](const MappedRegion& mapped) { return mapped.range.size == 0; });
  return regions;
}

// Takes the first `count` bytes off the piece.
Piece TakeFront(Piece& piece, std::size_t count) {
  const Piece front{piece.address, piece.data.first(count), piece.image};
  piece.address += static_cast<std::uint32_t>(count);
  piece.data = piece.data.subspan(count);
  return front;
}

// The bytes of `piece` that come before `border`, at least its first one.
std::size_t CountUpTo(const Piece& piece, std::uint64_t border) {
  return static_cast<std::size_t>(std::min<std::uint64_t>(piece.data.size(), border - piece.address));
}

// The images' bytes at plain addresses, ascending. A segment that runs across the alias's edge is cut there,
// for its two halves lie far apart.
std::vector<Piece> PiecesOf(std::span<const ImageFile> images, std::uint32_t aliasMask) {
  const std::uint64_t aliasSize = aliasMask & (~aliasMask + 1);  // the lowest bit of the mask
  std::vector<Piece> pieces;
  for (const ImageFile& image : images) {
    for (const ImageSegment& segment : image.segments) {
      Piece rest{segment.address, segment.data, &image.name};
      while (!rest.data.empty()) {
        const std::uint64_t edge = aliasMask == 0 ? rest.End() : (rest.address / aliasSize + 1) * aliasSize;
        pieces.push_back(TakeFront(rest, CountUpTo(rest, edge)));
        pieces.back().address &= ~aliasMask;
      }
    }
  }
  std::stable_sort(pieces.begin(), pieces.end(),
                   [](const Piece& left, const Piece& right) { return left.address < right.address; });
  return pieces;
}

void RefuseOverlaps(std::span<const Piece> pieces) {
  for (std::size_t i = 1; i < pieces.size(); ++i) {
    const Piece& before = pieces[i - 1];
    const Piece& after = pieces[i];
    if (before.End() <= after.address) continue;
    const std::uint64_t last = std::min(before.End(), after.End()) - 1;
    const std::string range = fmt::format("0x{:08X} to 0x{:08X}", after.address, last);
    if (before.image == after.image)
      throw InputError(fmt::format("{} gives the bytes from {} twice", *before.image, range));
    throw InputError(fmt::format("{} and {} overlap from {}", *before.image, *after.image, range));
  }
}

// Where the region that holds `address` ends and which it is; outside all of them, where the next begins.
struct RegionEnd {
  Region region;
  std::uint64_t end;
};

RegionEnd RegionAt(std::span<const MappedRegion> regions, std::uint32_t address) {
  RegionEnd outside{Region::Outside, std::uint64_t{1} << 32};
  for (const MappedRegion& mapped : regions) {
    if (mapped.range.Contains(address)) return {mapped.region, mapped.range.End()};
    if (mapped.range.base > address) outside.end = std::min<std::uint64_t>(outside.end, mapped.range.base);
  }
  return outside;
}

void Append(ImageBlock& block, const Piece& piece) {
  block.data.resize(piece.address - block.address, kFill);
  block.data.insert(block.data.end(), piece.data.begin(), piece.data.end());
  const auto size = static_cast<std::uint32_t>(piece.data.size());
  if (block.given.empty() || block.given.back().End() != piece.address)
    block.given.push_back({piece.address, size});
  else
    block.given.back().size += size;
}

// Runs of touched sectors. The plug-in programs whole sectors and fills up a block's first and last one, so
// a second block in the same sector would wipe out what the first one wrote there.
class MainBlocks {
 public:
  MainBlocks(std::uint32_t bytesPerSector, PluginCuts pluginCuts)
      : sectorSize(bytesPerSector), cuts(pluginCuts) {}

  void Add(Piece piece) {
    while (!piece.data.empty()) {
      const std::uint32_t sector = piece.address / sectorSize;
      const std::uint64_t sectorEnd = (std::uint64_t{sector} + 1) * sectorSize;
      if (!Continues(sector)) {
        blocks.push_back({Region::Main, piece.address, {}, {}});
        sectorsInBlock = 1;
      } else if (sector != lastSector) {
        ++sectorsInBlock;
      }
      lastSector = sector;
      Append(blocks.back(), TakeFront(piece, CountUpTo(piece, sectorEnd)));
    }
  }

  std::vector<ImageBlock> Take() { return std::move(blocks); }

 private:
  [[nodiscard]] bool Continues(std::uint32_t sector) const {
    if (blocks.empty()) return false;
    if (sector == lastSector) return true;
    return sector == lastSector + 1 && sectorsInBlock < MaxSectorsOfBlock(blocks.size() - 1, cuts);
  }

  std::uint32_t sectorSize;
  PluginCuts cuts;
  std::vector<ImageBlock> blocks;
  std::uint32_t lastSector = 0;
  std::size_t sectorsInBlock = 0;
};

// The plug-in programs these regions in one command each, from a copy that starts out as zeros, and counts
// the offsets of its permission check from the start of the block. So it gets the region from its first
// byte to its last, with what no image gives as erased: no bit is cleared that nobody asked for, and a key
// ring's unused entries are recognized.
ImageBlock WholeRegion(Region region, AddressRange range, std::span<const Piece> pieces) {
  ImageBlock block{region, range.base, {}, {}};
  for (const Piece& piece : pieces) Append(block, piece);
  block.data.resize(range.size, kFill);
  return block;
}

bool LiesWithin(std::span<const Piece> pieces, AddressRange range) {
  return std::all_of(pieces.begin(), pieces.end(), [&](const Piece& piece) {
    return range.Contains(piece.address) && piece.End() <= range.End();
  });
}

// Only what adjoins is joined: RAM has no erased state that a gap could be filled with.
std::vector<ImageBlock> Joined(Region region, std::span<const Piece> pieces) {
  std::vector<ImageBlock> blocks;
  for (const Piece& piece : pieces) {
    if (blocks.empty() || blocks.back().address + blocks.back().data.size() != piece.address)
      blocks.push_back({region, piece.address, {}, {}});
    Append(blocks.back(), piece);
  }
  return blocks;
}

// `pieces` are those of one visit to the region, ascending.
std::vector<ImageBlock> BlocksOf(Region region, std::span<const Piece> pieces, const MemoryMap& map,
                                 PluginCuts cuts) {
  switch (region) {
    case Region::Main: {
      MainBlocks blocks(map.sectorSize, cuts);
      for (const Piece& piece : pieces) blocks.Add(piece);
      return blocks.Take();
    }
    case Region::Ccfg:
    case Region::UserRecord:
      if (LiesWithin(pieces, map.userRecord))
        return {WholeRegion(Region::UserRecord, map.userRecord, pieces)};
      return {WholeRegion(Region::Ccfg, map.ccfg, pieces)};
    case Region::Scfg: return {WholeRegion(region, map.scfg, pieces)};
    case Region::Otp: return {WholeRegion(region, map.otp, pieces)};
    case Region::Ram:
    case Region::Outside: return Joined(region, pieces);
  }
  return {};
}

}  // namespace

std::size_t ImageBlock::ImageBytes() const {
  return std::accumulate(given.begin(), given.end(), std::size_t{0},
                         [](std::size_t sum, AddressRange range) { return sum + range.size; });
}

bool LoadPlan::Has(Region region) const {
  return std::any_of(blocks.begin(), blocks.end(),
                     [&](const ImageBlock& block) { return block.region == region; });
}

std::size_t LoadPlan::ImageBytes(Region region) const {
  std::size_t bytes = 0;
  for (const ImageBlock& block : blocks)
    if (block.region == region) bytes += block.ImageBytes();
  return bytes;
}

std::size_t LoadPlan::TotalBytes() const {
  return std::accumulate(blocks.begin(), blocks.end(), std::size_t{0},
                         [](std::size_t sum, const ImageBlock& block) { return sum + block.data.size(); });
}

PluginCuts PluginCutsUnder(const std::function<std::string(std::string_view)>& valueOf) {
  const auto isOn = [&](std::string_view name) { return valueOf(name) == "1"; };
  const std::string erase = valueOf("FlashEraseSetting");
  const bool cuts = isOn("FlashPageToggle") || isOn("FlashPagesFilledWith") || isOn("RetainMainSectors") ||
                    erase == "Chip Erase (retain sectors specified in CCFG)" ||
                    erase == "Retain MAIN sectors and CCFG and SCFG";
  return cuts ? PluginCuts::Yes : PluginCuts::No;
}

LoadPlan PlanLoad(std::span<const ImageFile> images, const MemoryMap& map, PluginCuts cuts) {
  const std::vector<Piece> pieces = PiecesOf(images, map.aliasMask);
  RefuseOverlaps(pieces);
  const std::vector<MappedRegion> regions = RegionsOf(map);

  LoadPlan plan;
  std::vector<Piece> visited;  // pieces of the region that the walk is in
  Region region = Region::Outside;
  const auto leaveRegion = [&] {
    if (visited.empty()) return;
    for (ImageBlock& block : BlocksOf(region, visited, map, cuts)) plan.blocks.push_back(std::move(block));
    visited.clear();
  };
  for (Piece rest : pieces) {
    while (!rest.data.empty()) {
      const RegionEnd at = RegionAt(regions, rest.address);
      if (at.region != region) leaveRegion();
      region = at.region;
      visited.push_back(TakeFront(rest, CountUpTo(rest, at.end)));
    }
  }
  leaveRegion();
  return plan;
}

// A transfer's sectors are acknowledged with 8-bit numbers that count up from the transfer's own command
// number f, and the plug-in follows them across one wrap only: a transfer of n sectors succeeds if and only
// if f + n - 1 is at most 256. A load's commands are numbered from 0, a no-operation first, then the chip
// erase if there is one; each MAIN block takes two numbers, one to program and one to verify. So block
// number k begins at 2k + 1 or 2k + 2, modulo 256, and one or two sectors always pass. Where the plug-in may
// cut a block into an unknown number of transfers, its number is unknown too, and nothing more is safe.
std::size_t MaxSectorsOfBlock(std::size_t index, PluginCuts cuts) {
  constexpr std::size_t kAlwaysSafe = 2;
  if (cuts == PluginCuts::Yes) return kAlwaysSafe;
  const std::size_t sinceWrap = index % 128;
  return std::max(kAlwaysSafe, std::min(kLargestTransfer, 255 - 2 * sinceWrap));
}

}  // namespace host
