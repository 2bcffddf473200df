#include <fmt/format.h>

#include <algorithm>

#include "host/report/Html.h"
#include "host/report/LoadHtmlParts.h"
#include "host/report/SectorNumbers.h"

namespace host::html {

namespace {

constexpr std::size_t kSectorsPerLine = 32;

// One sector in the picture.
struct Cell {
  char letter = ' ';
  char kind = ' ';  // of the style sheet
  bool isUnderlined = false;
  bool operator==(const Cell&) const = default;
};

constexpr Cell kBlank = {'.', 'e'};
constexpr Cell kData = {'d', 'd'};

Cell CellOf(SectorState state) {
  const char letter = static_cast<char>(state);
  switch (state) {
    case SectorState::Programmed: return {letter, 'p'};
    case SectorState::Unverified: return {letter, 'u'};
    case SectorState::Verified: return {letter, 'v'};
    case SectorState::Erased: return {letter, 'e'};
    case SectorState::Retained: return {letter, 'r'};
    case SectorState::Skipped: return {letter, 's'};
    case SectorState::Failed: return {letter, 'x'};
    case SectorState::Unknown: return {letter, 'q'};
    case SectorState::NotReached: return {letter, 'n'};
  }
  return {};
}

std::string Drawn(Cell cell, std::size_t count) {
  return fmt::format("<i class=\"k k{}{}\">{}</i>", cell.kind, cell.isUnderlined ? " kc" : "",
                     std::string(count, cell.letter));
}

// Lines of sectors, as many abreast as the page is wide. The table that follows says the same in words.
std::string Picture(const std::vector<Cell>& cells, std::uint32_t sectorSize, std::string_view when) {
  std::string picture = fmt::format(
      "<div class=\"map\" role=\"img\" aria-label=\"MAIN flash {} the load; the table below lists the "
      "sectors\">\n",
      when);
  for (std::size_t first = 0; first < cells.size(); first += kSectorsPerLine) {
    picture += fmt::format("<div><span>0x{:08x}</span>", first * sectorSize);
    const std::size_t end = std::min(first + kSectorsPerLine, cells.size());
    for (std::size_t begin = first; begin < end;) {
      std::size_t next = begin + 1;
      while (next < end && cells[next] == cells[begin]) ++next;
      picture += Drawn(cells[begin], next - begin);
      begin = next;
    }
    picture += "</div>\n";
  }
  return picture + "</div>\n";
}

// A row for what is true of some sectors; none where it is true of no sector.
template <typename IsMeant>
void AddRow(std::vector<Row>& rows, std::string title, std::size_t count, IsMeant isMeant) {
  std::vector<bool> meant(count);
  for (std::size_t sector = 0; sector < count; ++sector) meant[sector] = isMeant(sector);
  if (const auto many = std::count(meant.begin(), meant.end(), true); many != 0)
    rows.push_back({std::move(title), fmt::format("{}", many), SectorNumbers(meant)});
}

std::string Legend(std::uint32_t sectorSize, const std::vector<Row>& rows) {
  return Table(fmt::format("Sectors of {} bytes, by number", Grouped(sectorSize)),
               {{"State"}, {"Sectors", "n"}, {"Which", "m"}}, rows);
}

std::string BeforePart(const LoadRecord& record, int level) {
  const std::vector<SectorChange>& changes = record.sectorChanges;
  std::vector<Cell> cells;
  cells.reserve(changes.size());
  for (const SectorChange& change : changes) cells.push_back(change.wasBlank ? kBlank : kData);
  std::vector<Row> rows;
  AddRow(rows, Drawn(kBlank, 1) + " blank", changes.size(),
         [&](std::size_t i) { return changes[i].wasBlank; });
  AddRow(rows, Drawn(kData, 1) + " held data", changes.size(),
         [&](std::size_t i) { return !changes[i].wasBlank; });
  return Heading(level, "Before") + Picture(cells, record.sectorSize, "before") +
         Legend(record.sectorSize, rows);
}

std::string AfterPart(const LoadRecord& record) {
  const std::vector<SectorState>& sectors = record.sectors;
  const std::vector<SectorChange>& changes = record.sectorChanges;
  const auto hasChanged = [&](std::size_t i) { return i < changes.size() && changes[i].hasChanged; };
  std::vector<Cell> cells;
  for (std::size_t i = 0; i < sectors.size(); ++i) {
    cells.push_back(CellOf(sectors[i]));
    cells.back().isUnderlined = hasChanged(i);
  }
  std::vector<Row> rows;
  for (const SectorState state : kSectorStates)
    AddRow(rows, fmt::format("{} {}", Drawn(CellOf(state), 1), SectorStateName(state)), sectors.size(),
           [&](std::size_t i) { return sectors[i] == state; });
  AddRow(rows, Drawn({' ', 'e', true}, 1) + " holds other bytes than before", sectors.size(), hasChanged);
  return Picture(cells, record.sectorSize, "after") + Legend(record.sectorSize, rows);
}

}  // namespace

std::string FlashPart(const LoadRecord& record, int level) {
  if (record.sectors.empty()) return "";
  const std::string head = Heading(level, "MAIN flash");
  if (record.sectorChanges.empty()) return head + AfterPart(record);
  return head + BeforePart(record, level + 1) + Heading(level + 1, "After") + AfterPart(record);
}

}  // namespace host::html
