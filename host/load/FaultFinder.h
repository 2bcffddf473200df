#pragma once

#include "host/load/Comparison.h"

namespace host {

enum class FaultSearch { First, All };

// Narrows a MAIN flash that differs from an image down to sectors, by verification-only loads of halves: the
// chip compares CRCs itself, so nothing is read back and a locked chip is searched like any other. Each such
// load resets the chip; no memory of it changes.
class FaultFinder {
 public:
  explicit FaultFinder(const LoadTarget& loadTarget) : target(loadTarget) {}

  // For a record of `plan` whose MAIN flash failed a comparison: finds the first sector that differs, or all
  // ranges of them, tells them in `record.differences`, the failure, the sectors and the notes. After a
  // verification it goes on to compare CCFG and SCFG, which the plug-in does only behind a part of MAIN flash
  // that is equal. Does nothing for any other record.
  void Explain(const LoadPlan& plan, LoadRecord& record, FaultSearch search);

  // How many loads it has taken: log2 of the sectors of a block, and one, for the first.
  [[nodiscard]] std::size_t Loads() const { return loads; }

 private:
  // Sectors of one block, as indices of MAIN flash.
  struct Span {
    const ImageBlock* block = nullptr;
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
  };
  [[nodiscard]] Span Whole(const ImageBlock& block) const;
  // The part of the span's block that lies in it.
  [[nodiscard]] ImageBlock Cut(Span span) const;
  // Tells `record` of sectors that the settings leave out. Throws PluginError when there is no answer.
  bool IsEqual(Span span, LoadRecord& record);
  void FindFirst(Span span, LoadRecord& record);
  // Everything that differs in a span that may differ, or that is known to.
  void FindAny(Span span, LoadRecord& record);
  void FindAll(Span span, LoadRecord& record);
  void Mark(Span span, SectorState state, LoadRecord& record) const;
  void CompareRest(const LoadPlan& plan, LoadRecord& record);

  LoadTarget target;
  std::size_t loads = 0;
};

}  // namespace host
