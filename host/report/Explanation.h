#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace host {

// What an answer of the chip or a text of the plug-in, the host or the probe means for the user, and what to
// do about it.
struct Explanation {
  std::optional<int> code;  // result code of the chip, where the text has one
  std::string_view text;    // as it is worded, or the unchanging part of it
  std::string_view meaning;
  std::string_view remedy;
  // Where it holds: a region as RegionName() has it, or "erase", "exit", "password", "hsm". Empty: anywhere.
  std::string_view place{};
};

// All that there are, codes first.
std::span<const Explanation> Explanations();

// The explanations that fit a question: a result code ("132", "0x84"), or an error text that holds a known
// text or is part of one, letter case aside. Empty when none does.
//
// Where the place is known, as it is given or as the text names it, what is said of that place stands for
// what holds anywhere; where it is not, there is all that is known, what holds anywhere first. A text that
// only names a place has what is known of it.
std::vector<Explanation> Explain(std::string_view question, std::string_view place = {});

}  // namespace host
