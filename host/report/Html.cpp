#include "host/report/Html.h"

#include <fmt/format.h>

#include <cstddef>
#include <optional>

#include "host/report/HtmlStyle.h"

namespace host::html {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

struct Character {
  char32_t code = 0;
  std::size_t length = 0;  // in bytes
};

// The one that `text`, which is not empty, begins with; nothing where that is no UTF-8.
std::optional<Character> FirstOf(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<char32_t>(static_cast<unsigned char>(text[i])); };
  const char32_t lead = byte(0);
  if (lead < 0x80) return Character{lead, 1};
  const std::size_t length = lead >> 5 == 0b110 ? 2 : lead >> 4 == 0b1110 ? 3 : lead >> 3 == 0b11110 ? 4 : 0;
  if (length == 0 || length > text.size()) return std::nullopt;
  char32_t code = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (byte(i) >> 6 != 0b10) return std::nullopt;
    code = code << 6 | (byte(i) & 0x3F);
  }
  constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x1'0000};  // of a length: no shorter one would do
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kLeast[length] || code > 0x10'FFFF || isSurrogate) return std::nullopt;
  return Character{code, length};
}

struct CodeRange {
  char32_t first;
  char32_t last;
};
constexpr CodeRange s_unseen[] = {
    {0x00, 0x08},     {0x0B, 0x1F},                        // control characters
    {0x7F, 0x9F},     {0x61C, 0x61C},   {0x200E, 0x200F},  // and signs of direction
    {0x2028, 0x202E}, {0x2066, 0x2069}, {0xFEFF, 0xFEFF},
    {0xFDD0, 0xFDEF},  // no characters; nor are the last two of each plane
};

bool IsSeen(char32_t code) {
  for (const CodeRange range : s_unseen)
    if (code >= range.first && code <= range.last) return false;
  return (code & 0xFFFE) != 0xFFFE;
}

std::string_view EntityOf(char32_t code) {
  switch (code) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '\'': return "&#39;";
    default: return "";
  }
}

std::string ClassOf(std::string_view kind) {
  return kind.empty() ? "" : fmt::format(" class=\"{}\"", kind);
}

}  // namespace

std::string Escaped(std::string_view text) {
  std::string escaped;
  while (!text.empty()) {
    const std::optional<Character> character = FirstOf(text);
    const std::size_t length = character ? character->length : 1;
    const std::string_view entity = character ? EntityOf(character->code) : "";
    if (!character || !IsSeen(character->code)) {
      escaped += kReplacement;
    } else {
      escaped += entity.empty() ? text.substr(0, length) : entity;
    }
    text.remove_prefix(length);
  }
  return escaped;
}

std::string Heading(int level, std::string_view text) {
  return fmt::format("<h{0}>{1}</h{0}>\n", level, Escaped(text));
}

std::string Facts(const std::vector<TitledText>& facts) {
  std::string list;
  for (const auto& [title, text] : facts)
    if (!text.empty()) list += fmt::format("<dt>{}</dt><dd>{}</dd>\n", Escaped(title), Escaped(text));
  return list.empty() ? "" : "<dl>\n" + list + "</dl>\n";
}

std::string Table(std::string_view caption, const std::vector<Column>& columns,
                  const std::vector<Row>& rows) {
  std::string table = fmt::format("<table>\n<caption>{}</caption>\n<thead><tr>", Escaped(caption));
  for (const Column& column : columns)
    if (!column.title.empty())
      table += fmt::format("<th scope=\"col\"{}>{}</th>", ClassOf(column.kind), Escaped(column.title));
  table += "</tr></thead>\n<tbody>\n";
  for (const Row& row : rows) {
    table += fmt::format("<tr><th scope=\"row\"{}>{}</th>", ClassOf(columns[0].kind), row[0]);
    for (std::size_t i = 1; i < row.size(); ++i)
      if (const auto& [title, kind] = columns[i]; !title.empty())
        table += fmt::format("<td{} data-title=\"{}\">{}</td>", ClassOf(kind), Escaped(title), row[i]);
    table += "</tr>\n";
  }
  return table + "</tbody>\n</table>\n";
}

std::string Page(std::string_view title, std::string_view body) {
  return fmt::format(R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{}</title>
<style>
{}</style>
</head>
<body>
<main>
{}</main>
</body>
</html>
)",
                     Escaped(title), kStyle, body);
}

}  // namespace host::html
