#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace host {

// What an answer of the chip or a text of the plug-in means for the user, and what to do about it.
struct Explanation {
  int code = -1;          // result code of the chip; -1 for a text that has none
  std::string_view text;  // as the plug-in words it, or the unchanging part of it
  std::string_view meaning;
  std::string_view remedy;
};

// All that there are, codes first.
std::span<const Explanation> Explanations();

// The explanations that fit a question: a result code ("132", "0x84"), or an error text that holds a known
// text or is part of one, letter case aside. Empty when none does.
std::vector<Explanation> Explain(std::string_view question);

}  // namespace host
