#include "host/report/Explanation.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <string>

#include "host/plugin/PluginTexts.h"

namespace host {

namespace {

constexpr std::size_t kShortestPart = 4;  // of a text: less would fit nearly everything

// How error texts name the place, when they do.
constexpr struct {
  std::string_view phrase;
  std::string_view place;
} s_places[] = {
    {kMainProgrammingFailed, "main"},
    {kMainVerifyingFailed, "main"},
    {kMainBlankCheckFailed, "main"},
    {kCcfgProgrammingFailed, "ccfg"},
    {kCcfgVerifyingFailed, "ccfg"},
    {kCcfgBlankCheckFailed, "ccfg"},
    {kScfgProgrammingFailed, "scfg"},
    {kScfgVerifyingFailed, "scfg"},
    {kOtpProgrammingFailed, "otp"},
    {kEraseFailed, "erase"},
    {kExitFailed, "exit"},
    {kPasswordIdFailed, "password"},
    {kAuthenticationFailed, "password"},
};

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::optional<int> ToCode(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  int code = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), code, isHex ? 16 : 10);
  if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
  return code;
}

std::string_view PlaceIn(const std::string& asked) {
  for (const auto& named : s_places) {
    const std::string_view words = named.phrase.substr(0, named.phrase.find_last_not_of(" -:") + 1);
    if (Contains(asked, Lower(words))) return named.place;
  }
  return {};
}

std::vector<Explanation> WithCode(int code) {
  std::vector<Explanation> fitting;
  for (const Explanation& explanation : Explanations())
    if (explanation.code == code) fitting.push_back(explanation);
  return fitting;
}

std::vector<Explanation> WithText(const std::string& asked) {
  std::vector<Explanation> within;  // the question holds a known text
  std::vector<Explanation> around;  // or a known text holds the question
  for (const Explanation& explanation : Explanations()) {
    const std::string known = Lower(explanation.text);
    if (Contains(asked, known))
      within.push_back(explanation);
    else if (asked.size() >= kShortestPart && Contains(known, asked))
      around.push_back(explanation);
  }
  // What is known only as a part of a longer text that is known as well says less than that.
  std::vector<Explanation> longest;
  for (const Explanation& one : within)
    if (std::none_of(within.begin(), within.end(), [&](const Explanation& other) {
          return other.text.size() > one.text.size() && Contains(Lower(other.text), Lower(one.text));
        }))
      longest.push_back(one);
  return longest.empty() ? around : longest;
}

// Of explanations of one text, those of the place, or else those that hold anywhere.
void KeepForPlace(std::vector<Explanation>& fitting, std::string_view place) {
  const std::vector<Explanation> all = fitting;
  std::erase_if(fitting, [&](const Explanation& one) {
    const bool isSaidOfPlace = std::any_of(all.begin(), all.end(), [&](const Explanation& other) {
      return other.text == one.text && other.place == place;
    });
    const bool isSaidAnywhere = std::any_of(all.begin(), all.end(), [&](const Explanation& other) {
      return other.text == one.text && other.place.empty();
    });
    return isSaidOfPlace ? one.place != place : isSaidAnywhere && !one.place.empty();
  });
}

}  // namespace

std::vector<Explanation> Explain(std::string_view question, std::string_view place) {
  const std::optional<int> code = ToCode(question);
  const std::string asked = Lower(question);
  std::vector<Explanation> fitting = code ? WithCode(*code) : WithText(asked);
  if (place.empty()) place = PlaceIn(asked);
  if (!place.empty()) KeepForPlace(fitting, place);
  if (!fitting.empty() || code) return fitting;
  // Only the place is named: all that is known to happen there.
  for (const Explanation& explanation : Explanations())
    if (!place.empty() && explanation.place == place) fitting.push_back(explanation);
  return fitting;
}

}  // namespace host
