#include "host/report/LoadHtml.h"

#include <fmt/format.h>

#include "host/plan/MemoryText.h"
#include "host/plugin/PluginTexts.h"
#include "host/report/FailureText.h"
#include "host/report/Html.h"
#include "host/report/LoadHtmlParts.h"
#include "host/report/LoadText.h"

namespace host {

namespace {

using html::Escaped;
using html::Heading;

std::string_view Trimmed(std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

const char* ClassOf(const LoadRecord& record) {
  if (record.failure || record.isInterrupted) return "bad";
  return record.HasErrorMessages() ? "odd" : "good";
}

std::string BoardOf(const LoadReport& report) {
  return report.chip.empty() ? report.probe : fmt::format("{}, {}", report.probe, report.chip);
}

std::string LibraryVersion(const LoadRecord& record) {
  for (const LoadMessage& message : record.messages)
    if (message.text.starts_with(kLibraryIs))
      return std::string(Trimmed(message.text).substr(kLibraryIs.size()));
  return "";
}

std::string OutcomePart(const LoadReport& report) {
  const LoadRecord& record = report.record;
  return fmt::format("<p class=\"outcome {}\">{}</p>\n", ClassOf(record), Escaped(OutcomeSentence(record))) +
         html::Facts({{"Begun", report.started},
                      {"Device", fmt::format("{} ({})", record.device, record.deviceDescription)},
                      {"Board", BoardOf(report)},
                      {"Found", FoundText(record)},
                      {"Plan", PlannedSteps(record)},
                      {"Dry run", record.isDryRun ? "done to a copy; the chip is as it was" : ""}});
}

std::string FailurePart(const LoadRecord& record, int level) {
  if (!record.failure) return "";
  return Heading(level, "Failure") +
         fmt::format("<pre class=\"bad\">{}</pre>\n", Escaped(Trimmed(record.failure->text))) +
         html::Facts(FailureLines(record));
}

std::string RemarksPart(const LoadRecord& record, int level) {
  std::vector<TitledText> remarks;
  for (const std::string& warning : record.warnings) remarks.emplace_back("Warning", warning);
  for (const AddressRange range : record.differences)
    remarks.emplace_back("Difference", DifferenceText(record, range));
  for (const std::string& note : record.notes) remarks.emplace_back("Note", note);
  return remarks.empty() ? "" : Heading(level, "Remarks") + html::Facts(remarks);
}

std::string ImagesPart(const LoadRecord& record, int level) {
  std::vector<html::Row> rows;
  for (const PlannedImage& image : record.images)
    rows.push_back({Escaped(image.name), image.format, Grouped(image.bytes), image.sha256});
  return Heading(level, "Images") + html::Table("Files, and the SHA-256 of each as it was read",
                                                {{"File"}, {"Format"}, {"Bytes", "n"}, {"SHA-256", "m"}},
                                                rows);
}

std::string ChangedText(const LoadRecord& record, Region region) {
  if (region == Region::UserRecord) region = Region::Ccfg;
  for (const RegionChange& change : record.changes)
    if (change.region == region) return Grouped(change.bytes);
  return "";
}

std::string RegionsPart(const LoadRecord& record, int level) {
  std::vector<html::Row> rows;
  for (const RegionRecord& region : record.regions) {
    std::string ranges;
    for (const AddressRange range : region.ranges)
      ranges += (ranges.empty() ? "" : "<br>") + RangeText(range);
    rows.push_back({Upper(RegionName(region.region)), ranges, Grouped(region.bytes),
                    region.sectors == 0 ? "" : Grouped(region.sectors), ChangedText(record, region.region),
                    fmt::format("0x{:08x}", region.crc), OutcomeOf(region)});
  }
  return Heading(level, "Regions") +
         html::Table("What the images give, its CRC-32 with the bytes that fill gaps, and what became of it",
                     {{"Region"},
                      {"Addresses", "a"},
                      {"Bytes", "n"},
                      {"Sectors", "n"},
                      {record.changes.empty() ? "" : "Changed", "n"},
                      {"CRC-32", "a"},
                      {"Outcome"}},
                     rows);
}

std::string MessagesPart(const LoadRecord& record, int level) {
  if (record.messages.empty()) return "";
  std::string list = Heading(level, "Messages of the plug-in") + "<ol class=\"said\">\n";
  for (const LoadMessage& message : record.messages)
    list += fmt::format("<li{}</li>\n", (message.isError ? " class=\"bad\"><strong>Error:</strong> " : ">") +
                                            Escaped(Trimmed(message.text)));
  return list + "</ol>\n";
}

std::string ToolsPart(const LoadReport& report, std::string_view program, int level) {
  return Heading(level, "Made with") + html::Facts({{"Program", std::string(program)},
                                                    {"Plug-in", report.plugin},
                                                    {"Flash library", LibraryVersion(report.record)},
                                                    {"Device file", report.description},
                                                    {"Probe", report.probe}});
}

// Headings from `level` on.
std::string BoardParts(const LoadReport& report, std::string_view program, int level) {
  const LoadRecord& record = report.record;
  return OutcomePart(report) + FailurePart(record, level) + RemarksPart(record, level) +
         ImagesPart(record, level) + RegionsPart(record, level) + html::FlashPart(record, level) +
         html::ConfigurationPart(report, level) + html::SettingsPart(report, level) +
         html::TimePart(report, level) + MessagesPart(record, level) + ToolsPart(report, program, level);
}

std::string BoardsTable(const std::vector<LoadReport>& reports) {
  std::vector<html::Row> rows;
  for (std::size_t i = 0; i < reports.size(); ++i)
    rows.push_back({fmt::format("<a href=\"#board-{}\">{}</a>", i + 1, Escaped(BoardOf(reports[i]))),
                    fmt::format("<span class=\"{}\">{}</span>", ClassOf(reports[i].record),
                                Escaped(OutcomeSentence(reports[i].record)))});
  return html::Table("Boards that were loaded side by side", {{"Board"}, {"Outcome"}}, rows);
}

}  // namespace

std::string LoadHtml(std::string_view program, const std::vector<LoadReport>& reports) {
  const LoadReport& first = reports.front();
  const std::string name = fmt::format(
      "{} report: {}", first.record.mode == LoadMode::Verify ? "Verification" : "Load", first.record.device);
  const std::string title = name + ", " + first.started;
  std::string body = Heading(1, name);
  if (reports.size() == 1) return html::Page(title, body + BoardParts(first, program, 2));
  body += BoardsTable(reports);
  for (std::size_t i = 0; i < reports.size(); ++i)
    body += fmt::format("<section class=\"board\" id=\"board-{}\">\n", i + 1) +
            Heading(2, BoardOf(reports[i])) + BoardParts(reports[i], program, 3) + "</section>\n";
  return html::Page(title, body);
}

}  // namespace host
