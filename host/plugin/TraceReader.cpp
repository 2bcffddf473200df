#include "host/plugin/TraceReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/FileBytes.h"
#include "host/device/InputError.h"
#include "host/device/Number.h"

namespace host {

namespace {

constexpr std::uintmax_t kLargestTrace = std::uintmax_t{256} << 20;
constexpr std::size_t kLongestLine = std::size_t{1} << 20;           // only a message can be long
constexpr std::uint64_t kLargestTransfer = std::uint64_t{16} << 20;  // more than any of these chips holds
constexpr double kLongestMs = 1e12;

// The object of one line. Throws InputError for a value of another kind than the trace has.
class Line {
 public:
  explicit Line(std::string_view text) : object(nlohmann::json::parse(text, nullptr, false)) {
    if (!object.is_object()) throw InputError("is not a line of a trace");
  }

  [[nodiscard]] std::optional<std::string_view> Text(const char* key) const {
    const auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    if (!found->is_string()) Refuse(key);
    return found->get_ref<const std::string&>();
  }
  [[nodiscard]] std::string_view NeededText(const char* key) const {
    const auto text = Text(key);
    if (text) return *text;
    Refuse(key);
  }
  [[nodiscard]] std::optional<std::uint64_t> Number(const char* key) const {
    const auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    if (!found->is_number_unsigned()) Refuse(key);
    return found->get<std::uint64_t>();
  }
  // Of a text: "0x00010008".
  [[nodiscard]] std::optional<std::uint64_t> Hex(const char* key) const {
    const auto text = Text(key);
    if (!text) return std::nullopt;
    const auto number = ParseNumber(*text);
    if (!number) Refuse(key);
    return number;
  }
  [[nodiscard]] std::uint64_t Nanoseconds() const {
    const auto found = object.find("ms");
    if (found == object.end() || !found->is_number()) Refuse("ms");
    const auto ms = found->get<double>();
    if (!(ms >= 0 && ms <= kLongestMs)) Refuse("ms");
    return static_cast<std::uint64_t>(std::llround(ms * 1e6));
  }
  // The bytes of a transfer, as far as the line has them.
  [[nodiscard]] std::vector<std::uint8_t> Data() const {
    const std::uint64_t size = Number("bytes").value_or(0);
    if (size > kLargestTransfer) Refuse("bytes");
    std::string_view digits = Text("data").value_or("");
    if (digits.ends_with(kHiddenText)) digits.remove_suffix(kHiddenText.size());
    if (digits.size() % 2 != 0 || digits.size() / 2 > size) Refuse("data");
    std::vector<std::uint8_t> data(static_cast<std::size_t>(size));
    for (std::size_t i = 0; i < digits.size() / 2; ++i) {
      const char* const pair = digits.data() + 2 * i;
      if (std::from_chars(pair, pair + 2, data[i], 16).ptr != pair + 2) Refuse("data");
    }
    return data;
  }

 private:
  [[noreturn]] static void Refuse(const char* key) {
    throw InputError(fmt::format("\"{}\" is missing, or not what a trace has there", key));
  }

  nlohmann::json object;
};

TraceHeader ReadHeader(const Line& line) {
  const auto version = line.Number("version");
  if (line.Text("format") != kTraceFormat || !version) throw InputError("is not the first line of a trace");
  if (*version != kTraceVersion)
    throw InputError(
        fmt::format("is a trace of version {}; this program reads version {}", *version, kTraceVersion));
  const auto textOf = [&](const char* key) { return std::string(line.Text(key).value_or("")); };
  return {textOf("program"), textOf("plugin"), textOf("device"), textOf("probe")};
}

void PlayPluginCall(const Line& line, HostCallObserver& observer) {
  const std::uint64_t ns = line.Nanoseconds();
  const auto begun = line.Text("begin");
  PluginCall call{.function = begun ? *begun : line.NeededText("end"), .subject = line.Text("name")};
  if (const auto address = line.Hex("address")) call.address = static_cast<std::uint32_t>(*address);
  call.bytes = line.Number("bytes");
  call.error = line.Text("error");
  if (begun) {
    observer.Begins(call, ns);
  } else {
    observer.Ends(call, ns);
  }
}

void PlayHostCall(const Line& line, HostCallObserver& observer) {
  const std::uint64_t ns = line.Nanoseconds();
  const std::vector<std::uint8_t> data = line.Data();
  HostCall call{.function = line.NeededText("call"), .core = line.NeededText("core")};
  call.number = line.Number("n").value_or(0);
  call.subject = line.Text("name");
  call.text = line.Text("text");
  call.address = line.Hex("address");
  call.value = line.Hex("value");
  call.elementSize = static_cast<std::size_t>(line.Number("element").value_or(0));
  call.data = data;
  call.roundTrips = line.Number("trips").value_or(0);
  call.error = line.Text("error");
  observer.Saw(call, ns);
}

void Play(const Line& line, HostCallObserver& observer) {
  if (line.Text("call")) {
    PlayHostCall(line, observer);
  } else {
    PlayPluginCall(line, observer);
  }
}

}  // namespace

TraceFacts ReplayTrace(const std::filesystem::path& file, HostCallObserver& observer) {
  const std::string content = ReadWholeFile(file, kLargestTrace);
  if (content.empty()) throw InputError(file.string() + ": is empty");
  TraceFacts facts;
  for (std::size_t at = 0; at < content.size();) {
    const std::size_t end = std::min(content.find('\n', at), content.size());
    const std::string_view text(content.data() + at, end - at);
    at = end + 1;
    try {
      if (text.size() > kLongestLine) throw InputError("is longer than any line of a trace");
      const Line line(text);
      if (facts.lines == 0) {
        facts.header = ReadHeader(line);
      } else {
        Play(line, observer);
      }
    } catch (const InputError& error) {
      facts.isCut = facts.lines != 0 && end == content.size();
      if (facts.isCut) break;
      throw InputError(fmt::format("{}:{}: {}", file.string(), facts.lines + 1, error.what()));
    }
    ++facts.lines;
  }
  return facts;
}

}  // namespace host
