#include "host/probe/openocd/OpenOcd.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace host {

namespace {

using namespace std::chrono_literals;

constexpr char kEnd = 0x1A;  // of a command, and of its result
constexpr auto kLongestCommand = 10s;
constexpr auto kCancelPoll = 50ms;
constexpr std::size_t kWordsAtOnce = 128;  // after them it can be cancelled

// What is between the outermost braces of a list's element, or the element itself.
std::string_view Unbraced(std::string_view element) {
  if (element.size() >= 2 && element.front() == '{' && element.back() == '}')
    element = element.substr(1, element.size() - 2);
  const auto end = element.find_last_not_of(" \n");
  return element.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

// The first number of the text, which is taken from it.
std::uint32_t TakeNumber(std::string_view& text) {
  const auto begin = text.find("0x");
  std::uint32_t number = 0;
  if (begin != std::string_view::npos) {
    const auto [end, error] = std::from_chars(text.data() + begin + 2, text.data() + text.size(), number, 16);
    if (error == std::errc()) {
      text.remove_prefix(static_cast<std::size_t>(end - text.data()));
      return number;
    }
  }
  throw ProbeError(ProbeError::Kind::BadAnswer, "OpenOCD answered no number: see which version it is");
}

}  // namespace

OpenOcd::OpenOcd(const TcpAddress& address) : stream(address) {
  const std::string names = Run("dap names", "its debug access ports");
  dap = names.substr(0, names.find(' '));
  if (dap.empty())
    throw ProbeError(ProbeError::Kind::NoProbe,
                     "OpenOCD has no debug access port: its configuration lacks \"dap create\"");
}

void OpenOcd::Connect() {
  Run("dap init", "the debug port");
}

std::uint32_t OpenOcd::ReadAp(ApRegister from) {
  const std::string answer = Run(fmt::format("{} apreg {} {}", dap, from.port, from.offset), NameOf(from));
  std::string_view text = answer;
  return TakeNumber(text);
}

void OpenOcd::WriteAp(ApRegister to, std::uint32_t value, AfterWrite after) {
  const std::string write = fmt::format("{} apreg {} {} 0x{:08x}", dap, to.port, to.offset, value);
  Run(after == AfterWrite::MayBeSilent ? "catch {" + write + "}" : write, NameOf(to));
}

void OpenOcd::ReadApBlock(ApRegister from, std::span<std::uint32_t> words) {
  while (!words.empty()) {
    const std::size_t count = std::min(words.size(), kWordsAtOnce);
    const std::string answer =
        Run(fmt::format("set words {{}}; for {{set i 0}} {{$i < {}}} {{incr i}} "
                        "{{append words [{} apreg {} {}]}}; string map {{\"\\n\" \" \"}} $words",
                        count, dap, from.port, from.offset),
            NameOf(from));
    std::string_view text = answer;
    for (std::uint32_t& word : words.first(count)) word = TakeNumber(text);
    words = words.subspan(count);
  }
}

void OpenOcd::WriteApBlock(ApRegister to, std::span<const std::uint32_t> words) {
  while (!words.empty()) {
    const auto some = words.first(std::min(words.size(), kWordsAtOnce));
    Run(fmt::format("foreach word {{{:#x}}} {{{} apreg {} {} $word}}", fmt::join(some, " "), dap, to.port,
                    to.offset),
        NameOf(to));
    words = words.subspan(some.size());
  }
}

void OpenOcd::SetResetPin(bool high) {
  Run(high ? "adapter deassert srst" : "adapter assert srst", "the reset pin");
}

std::string OpenOcd::Run(const std::string& script, const std::string& what) {
  const std::string answer = Ask(fmt::format("list [catch {{{}}} result] $result", script));
  const auto space = answer.find(' ');
  const std::string_view result =
      Unbraced(space == std::string::npos ? "" : std::string_view(answer).substr(space + 1));
  if (answer.substr(0, space) == "0") return std::string(result);
  throw ProbeError(ProbeError::Kind::Fault, fmt::format("OpenOCD failed in {}{}{}: its own output tells why",
                                                        what, result.empty() ? "" : ": ", result));
}

std::string OpenOcd::Ask(std::string_view line) {
  RequireGoingOn();
  std::string sent(line);
  sent += kEnd;
  stream.Send({reinterpret_cast<const std::uint8_t*>(sent.data()), sent.size()});
  ++traffic.roundTrips;
  ++traffic.packets;
  traffic.bytes += sent.size();
  std::string received;
  for (auto waited = 0ms; waited < kLongestCommand;) {
    std::array<std::uint8_t, 4096> piece{};
    const std::size_t count = stream.Receive(piece, kCancelPoll);
    if (count == 0) waited += kCancelPoll;
    RequireGoingOn();
    received.append(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
    traffic.bytes += count;
    if (received.ends_with(kEnd)) return received.substr(0, received.size() - 1);
  }
  throw ProbeError(ProbeError::Kind::TimedOut, "OpenOCD does not answer: start it again");
}

}  // namespace host
