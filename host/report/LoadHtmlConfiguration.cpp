#include <fmt/format.h>

#include "host/report/Html.h"
#include "host/report/LoadHtmlParts.h"

namespace host::html {

namespace {

std::string ContentsTable(const LoadReport& report) {
  if (report.after.empty()) return "";
  std::vector<Row> rows;
  const bool hasBefore = report.before.size() == report.after.size() && report.before != report.after;
  for (std::size_t i = 0; i < report.after.size(); ++i) {
    rows.push_back({Escaped(report.after[i].first)});
    if (hasBefore) rows.back().push_back(Escaped(report.before[i].second));
    rows.back().push_back(Escaped(report.after[i].second));
  }
  if (hasBefore) return Table("What the memories hold", {{"Memory"}, {"Before"}, {"After"}}, rows);
  return Table("What the memories hold", {{"Memory"}, {"Now"}}, rows);
}

std::string FieldsTable(const LoadReport& report) {
  if (report.configuration.empty()) return "";
  std::vector<Row> rows;
  for (const ConfigurationField& field : report.configuration)
    rows.push_back({Escaped(field.name), fmt::format("0x{:08x}", field.address), Escaped(field.value),
                    Escaped(field.meaning)});
  return Table(report.configurationIsOnChip
                   ? "Fields of CCFG and SCFG as the chip holds them"
                   : "Fields of CCFG and SCFG as the images give them; settings may say otherwise",
               {{"Field"}, {"Address", "a"}, {"Value", "m"}, {"Meaning"}}, rows);
}

std::string ValueText(const AppliedSetting& setting) {
  std::string text = setting.value.empty() ? "<span class=\"soft\">empty</span>" : Escaped(setting.value);
  if (setting.isUsual) return text;
  return fmt::format("<strong>{}</strong> <span class=\"soft\">in place of {}</span>", text,
                     setting.usual.empty() ? "nothing" : Escaped(setting.usual));
}

}  // namespace

std::string ConfigurationPart(const LoadReport& report, int level) {
  const std::string tables = ContentsTable(report) + FieldsTable(report);
  return tables.empty() ? "" : Heading(level, "Configuration") + tables;
}

std::string SettingsPart(const LoadReport& report, int level) {
  std::vector<Row> rows;
  for (const AppliedSetting& setting : report.settings)
    rows.push_back({Escaped(setting.name), ValueText(setting), Escaped(setting.meaning)});
  if (rows.empty()) return "";
  return Heading(level, "Settings") +
         Table("As the load was given them; what is not the device's usual value is bold",
               {{"Setting"}, {"Value"}, {"Meaning"}}, rows);
}

}  // namespace host::html
