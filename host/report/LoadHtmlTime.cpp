#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "host/report/Html.h"
#include "host/report/LoadHtmlParts.h"

namespace host::html {

namespace {

// A word on the two wires: request, turnaround, acknowledgement, turnaround, data, parity.
constexpr std::uint64_t kClocksPerWord = 8 + 1 + 3 + 1 + 32 + 1;

// What writing these bytes keeps the wire busy at the least.
std::uint64_t WireNs(std::uint64_t bytes, std::uint32_t hertz) {
  const std::uint64_t clocks = (bytes + 3) / 4 * kClocksPerWord;
  return static_cast<std::uint64_t>(static_cast<double>(clocks) * 1e9 / hertz);
}

double Percent(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0 : 100 * static_cast<double>(std::min(part, whole)) / static_cast<double>(whole);
}

// Where in the load the phase lies, and how much of it the wire alone would have taken.
std::string Bar(std::uint64_t before, std::uint64_t ns, std::uint64_t wireNs, std::uint64_t total) {
  return fmt::format(
      "<span class=\"bar\" style=\"margin-left:{:.1f}%;width:{:.1f}%\"><b "
      "style=\"width:{:.1f}%\"></b></span>",
      Percent(before, total), Percent(ns, total), Percent(wireNs, ns));
}

// A verification writes a command a block: there is nothing in it for a wire to limit.
std::string Comment(const LoadReport& report, std::uint64_t wireNs) {
  if (report.record.mode == LoadMode::Verify || report.record.wasThere) return "";
  if (!report.wireHz)
    return "<p class=\"soft\">The clock of the wire is not known: there is nothing to compare the time "
           "with.</p>\n";
  return fmt::format(
      "<p class=\"soft\">At {:g} MHz, {} clocks a word, the wire moves what was written in {}, the strong "
      "part "
      "of the bars. The rest is the chip's erasing and programming, answers, and the probe's way to the "
      "host.</p>\n",
      *report.wireHz / 1e6, kClocksPerWord, Duration(wireNs));
}

}  // namespace

std::string TimePart(const LoadReport& report, int level) {
  const LoadRecord& record = report.record;
  const std::uint64_t total = std::accumulate(record.phaseNs.begin(), record.phaseNs.end(), std::uint64_t{0});
  if (total == 0) return "";
  const auto wireNs = [&](std::uint64_t bytes) { return report.wireHz ? WireNs(bytes, *report.wireHz) : 0; };
  const auto wireText = [&](std::uint64_t ns) { return report.wireHz ? Duration(ns) : ""; };
  std::vector<Row> rows;
  std::uint64_t before = 0;
  for (std::size_t phase = 0; phase < kPhaseCount; ++phase) {
    const std::uint64_t ns = record.phaseNs[phase];
    const std::uint64_t bytes = record.phaseBytes[phase];
    if (ns == 0 && bytes == 0) continue;
    rows.push_back({std::string(PhaseName(static_cast<Phase>(phase))), Bar(before, ns, wireNs(bytes), total),
                    Duration(ns), Grouped(bytes), wireText(wireNs(bytes))});
    before += ns;
  }
  rows.push_back({"all", "", fmt::format("<b>{}</b>", Duration(total)), Grouped(record.wireBytes),
                  wireText(wireNs(record.wireBytes))});
  return Heading(level, "Time") +
         Table("By phase, of the probe's clock; what came more than once is added up",
               {{"Phase"},
                {"Course", "course"},
                {"Time", "n"},
                {"Bytes written", "n"},
                {report.wireHz ? "Wire alone" : "", "n"}},
               rows) +
         Comment(report, wireNs(record.wireBytes));
}

}  // namespace host::html
