#include "host/plan/ImagePlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "host/device/InputError.h"

namespace host {
namespace {

// Bytes of one image at their plain address.
struct Piece {
  std::uint32_t address;
  std::span<const std::uint8_t> data;
  const std::string* image;  // its name

  [[nodiscard]] AddressRange Range() const { return {address, static_cast<std::uint32_t>(data.size())}; }
  [[nodiscard]] std::uint64_t End() const { return Range().End(); }
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
    const std::string range = fmt::format("0x{:08x}..0x{:08x}", after.address, last);
    if (before.image == after.image)
      throw InputError(fmt::format("{} gives the bytes {} twice", *before.image, range));
    throw InputError(fmt::format("{} and {} overlap in {}", *before.image, *after.image, range));
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

// The plug-in programs these regions in one command each, from a copy that starts out as zeros, and counts
// the offsets of its permission check from the start of the block. So it gets the region from its first
// byte to its last, with what no image gives as erased: no bit is cleared that nobody asked for, and a key
// ring's unused entries are recognized.
ImageBlock WholeRegion(Region region, AddressRange range, std::span<const Piece> pieces) {
  ImageBlock block{region, range.base, {}, {}};
  for (const Piece& piece : pieces) block.Append(piece.address, piece.data);
  block.FillUpTo(range.End());
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
    if (blocks.empty() || blocks.back().End() != piece.address)
      blocks.push_back({region, piece.address, {}, {}});
    blocks.back().Append(piece.address, piece.data);
  }
  return blocks;
}

// `pieces` are those of one visit to the region, ascending.
std::vector<ImageBlock> BlocksOf(Region region, std::span<const Piece> pieces, const MemoryMap& map,
                                 PluginCuts cuts) {
  switch (region) {
    case Region::Main: {
      MainBlocks blocks(map.sectorSize, cuts);
      for (const Piece& piece : pieces) blocks.Add(piece.address, piece.data);
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

LoadPlan PlanLoad(std::span<const ImageFile> images, const MemoryMap& map, PluginCuts cuts) {
  const std::vector<Piece> pieces = PiecesOf(images, map.aliasMask);
  RefuseOverlaps(pieces);
  const std::vector<MappedRegion> regions = RegionsOf(map);

  LoadPlan plan;
  Region region = Region::Outside;  // that the walk is in
  std::vector<Piece> visited;       // its pieces
  const auto leaveRegion = [&] {
    if (visited.empty()) return;
    for (ImageBlock& block : BlocksOf(region, visited, map, cuts)) plan.blocks.push_back(std::move(block));
    visited.clear();
  };
  for (const Piece& piece : pieces) {
    bool isStray = false;
    for (Piece rest = piece; !rest.data.empty();) {
      const RegionEnd at = RegionAt(regions, rest.address);
      if (at.region == Region::Outside && !isStray) {
        plan.strays.push_back(
            {*piece.image, piece.Range(), rest.address == piece.address ? at.region : region});
        isStray = true;
      }
      if (at.region != region) leaveRegion();
      region = at.region;
      visited.push_back(TakeFront(rest, CountUpTo(rest, at.end)));
    }
  }
  leaveRegion();
  return plan;
}

}  // namespace host
