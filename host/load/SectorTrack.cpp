#include "host/load/SectorTrack.h"

#include <algorithm>

namespace host {

namespace {

constexpr unsigned kKeepMarkedSectors = 1U << 0;  // of an erase command's argument

// Before it does anything, the ROM looks at these: a command that they refuse has changed nothing.
bool IsRefusedUntouched(std::uint8_t result) {
  return (result >= 0x80 && result <= 0x83) || result == 0x86;
}

// The field that the ROM reports: a bit for each of the first 32 sectors, then for groups of eight.
bool IsMarked(const std::vector<std::uint32_t>& field, std::size_t sector, unsigned groupShift) {
  const auto bit = [&](std::size_t word, std::size_t index) {
    return word < field.size() && index < 32 && (field[word] >> index & 1U) != 0;
  };
  if (sector < 32) return bit(0, sector);
  if (sector < 256) return bit(1, (sector - 32) / 8 + groupShift);
  return field.size() == 3 && bit(2, (sector - 256) / 8);
}

class Track {
 public:
  Track(const DeviceDescription& chip)
      : device(chip),
        states(chip.map.sectorSize == 0 ? 0 : chip.map.main.size / chip.map.sectorSize,
               SectorState::Retained),
        isKept(states.size(), false),
        isHandled(states.size(), false) {}

  void Follow(const SaciExchange& exchange) {
    switch (exchange.command) {
      case saci::kErase:
      case saci::kEraseKeepingConfiguration: Erase(exchange); return;
      case saci::kProgramSector: Program(exchange, exchange.HasFailed() ? 0 : 1); return;
      case saci::kProgramPipelined: Program(exchange, exchange.sectorsAcknowledged); return;
      case saci::kVerifyMain:
        if (exchange.Compares()) Compare(exchange);
        return;
      default: return;
    }
  }

  // Gives a reason to sectors of the images that no command was for.
  void AccountFor(const ImageBlock& block, bool isTaken) {
    const Sectors in = Within(block.Range());
    // A plug-in goes through a block upwards: what lies below the last sector handled was passed by.
    std::size_t passed = isTaken ? in.end : in.begin;
    for (std::size_t sector = passed; sector < in.end; ++sector)
      if (isHandled[sector]) passed = sector;
    for (std::size_t sector = in.begin; sector < in.end; ++sector)
      if (!isHandled[sector] && !isKept[sector])
        states[sector] = sector < passed ? SectorState::Skipped : SectorState::NotReached;
  }

  std::vector<SectorState> Take() { return std::move(states); }

 private:
  struct Sectors {
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  // Cut to what the device has.
  [[nodiscard]] Sectors Within(AddressRange range) const {
    const std::size_t size = device.map.sectorSize;
    if (range.size == 0 || size == 0) return {};
    const auto end = static_cast<std::size_t>((range.End() + size - 1) / size);
    return {std::min<std::size_t>(range.base / size, states.size()), std::min(end, states.size())};
  }

  void Erase(const SaciExchange& exchange) {
    if (exchange.HasFailed()) {
      if (!exchange.Result() || !IsRefusedUntouched(*exchange.Result()))
        std::fill(states.begin(), states.end(), SectorState::Unknown);
      return;
    }
    const bool keepsMarked = (exchange.argument & kKeepMarkedSectors) != 0;
    for (std::size_t sector = 0; sector < states.size(); ++sector) {
      isKept[sector] = keepsMarked && IsMarked(exchange.words, sector, device.chip.retainGroupShift);
      states[sector] = isKept[sector] ? SectorState::Retained : SectorState::Erased;
    }
  }

  void Program(const SaciExchange& exchange, std::size_t done) {
    const Sectors in = Within(exchange.MainRange());
    const bool isRefused = exchange.Result().value_or(0) != 0;
    for (std::size_t sector = in.begin; sector < in.end; ++sector) {
      const std::size_t index = sector - in.begin;
      isHandled[sector] = true;
      states[sector] = index < done                 ? SectorState::Unverified
                       : index == done && isRefused ? SectorState::Failed
                                                    : SectorState::Unknown;
    }
  }

  void Compare(const SaciExchange& exchange) {
    const Sectors in = Within(exchange.MainRange());
    for (std::size_t sector = in.begin; sector < in.end; ++sector) {
      SectorState& state = states[sector];
      isHandled[sector] = true;
      if (!exchange.HasFailed()) {
        state = state == SectorState::Unverified ? SectorState::Programmed : SectorState::Verified;
      } else if (exchange.Result()) {
        state = SectorState::Failed;
      } else if (state != SectorState::Unverified) {
        state = SectorState::Unknown;
      }
    }
  }

  const DeviceDescription& device;
  std::vector<SectorState> states;
  std::vector<bool> isKept;     // by the erase
  std::vector<bool> isHandled;  // by a command of its own
};

}  // namespace

std::vector<SectorState> TrackSectors(const LoadPlan& plan, const DeviceDescription& device,
                                      const SaciWatch& watch, std::size_t blocksTaken) {
  Track track(device);
  for (const SaciExchange& exchange : watch.Exchanges()) track.Follow(exchange);
  for (std::size_t block = 0; block < plan.blocks.size(); ++block)
    if (plan.blocks[block].region == Region::Main) track.AccountFor(plan.blocks[block], block < blocksTaken);
  return track.Take();
}

}  // namespace host
