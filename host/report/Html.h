#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/report/Format.h"

namespace host::html {

// `text` for a page, between tags or in an attribute: what HTML reserves is escaped. What nobody would see is
// made to be seen: each control character other than a line end or a tab, each sign that turns the direction
// of writing, each byte that is no UTF-8 becomes a replacement character.
std::string Escaped(std::string_view text);

// "<h2>text</h2>"
std::string Heading(int level, std::string_view text);

// Titles and texts, escaped here; without the texts that are empty.
std::string Facts(const std::vector<TitledText>& facts);

struct Column {
  std::string_view title;      // empty: the column is left out
  std::string_view kind = "";  // "n" of a number, "a" of addresses, "m" of other digits, or "course"
};
using Row = std::vector<std::string>;  // HTML of the cells; the first one heads the row

std::string Table(std::string_view caption, const std::vector<Column>& columns, const std::vector<Row>& rows);

// A whole document in English. It asks nothing of any other file and runs nothing: the browser is told to
// refuse both.
std::string Page(std::string_view title, std::string_view body);

}  // namespace host::html
