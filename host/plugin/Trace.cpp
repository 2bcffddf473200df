#include "host/plugin/Trace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>
#include <utility>

#include "host/device/InputError.h"
#include "host/probe/DebugProbe.h"

namespace host {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kShownBytes = 32;  // of a transfer: what every command and answer but bulk data needs
constexpr std::size_t kWord = 4;

double Milliseconds(std::uint64_t nanoseconds) {
  return static_cast<double>(nanoseconds) / 1e6;
}

Json PluginLine(const char* event, const PluginCall& call, std::uint64_t elapsedNs) {
  Json line;
  line[event] = call.function;
  line["ms"] = Milliseconds(elapsedNs);
  if (call.subject) line["name"] = *call.subject;
  if (call.address) line["address"] = fmt::format("0x{:08x}", *call.address);
  if (call.bytes) line["bytes"] = *call.bytes;
  if (call.error) line["error"] = *call.error;
  return line;
}

}  // namespace

Trace::Trace(const std::string& tracePath, const TraceHeader& header, TraceSecrets hidden)
    : path(tracePath), file(tracePath, std::ios::trunc), secrets(std::move(hidden)) {
  if (!file) throw InputError(fmt::format("trace file {}: {}", path, std::strerror(errno)));
  // On the wire a password is padded to whole words; an empty one is none.
  std::erase_if(secrets.passwords, [](const auto& password) { return password.empty(); });
  for (auto& password : secrets.passwords) password.resize((password.size() + kWord - 1) / kWord * kWord);
  Write(Json{{"format", kTraceFormat},
             {"version", kTraceVersion},
             {"program", header.program},
             {"plugin", header.plugin},
             {"device", header.device},
             {"probe", header.probe}});
}

void Trace::Saw(const HostCall& call, std::uint64_t elapsedNs) {
  Json line;
  line["n"] = call.number;
  line["ms"] = Milliseconds(elapsedNs);
  line["core"] = call.core;
  line["call"] = call.function;
  if (call.subject) line["name"] = *call.subject;
  if (call.text) line["text"] = IsSecretSetting(call) ? kHiddenText : *call.text;
  if (call.address) line["address"] = fmt::format("0x{:08x}", *call.address);
  if (call.page.value_or(0) != 0) line["page"] = *call.page;
  if (call.value) line["value"] = fmt::format("0x{:08x}", *call.value);
  if (call.elementSize != 0) {
    line["bytes"] = call.data.size();
    line["element"] = call.elementSize;
    line["data"] = DataText(call);
  }
  if (call.roundTrips != 0) line["trips"] = call.roundTrips;
  if (call.error) line["error"] = *call.error;
  Write(line);
}

void Trace::Begins(const PluginCall& call, std::uint64_t elapsedNs) {
  Write(PluginLine("begin", call, elapsedNs));
}

void Trace::Ends(const PluginCall& call, std::uint64_t elapsedNs) {
  Write(PluginLine("end", call, elapsedNs));
}

// That no password is set is no secret, and often what is looked for.
bool Trace::IsSecretSetting(const HostCall& call) const {
  return !call.text->empty() &&
         std::find(secrets.settings.begin(), secrets.settings.end(), call.subject) != secrets.settings.end();
}

// A password is a transfer of its own, or comes right behind the header of its command, which is shown. Data
// that only happens to hold the same bytes is not hidden.
std::string Trace::DataText(const HostCall& call) const {
  if (call.core == CoreName(Core::SecureAp)) {
    if (IsPassword(call.data)) return std::string(kHiddenText);
    if (call.data.size() > kWord && IsPassword(call.data.subspan(kWord)))
      return fmt::format("{:02x}{}", fmt::join(call.data.first(kWord), ""), kHiddenText);
  }
  return fmt::format("{:02x}", fmt::join(call.data.first(std::min(kShownBytes, call.data.size())), ""));
}

bool Trace::IsPassword(std::span<const std::uint8_t> bytes) const {
  return std::any_of(secrets.passwords.begin(), secrets.passwords.end(), [&](const auto& password) {
    return std::equal(bytes.begin(), bytes.end(), password.begin(), password.end());
  });
}

template <typename Line>
void Trace::Write(const Line& line) {
  if (loss) return;
  // A plug-in may hand over any bytes as text; the file stays valid JSON.
  file << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n' << std::flush;
  if (file) {
    ++lines;
    return;
  }
  loss = fmt::format("trace file {}: {}; it ends after {} lines", path, std::strerror(errno), lines);
}

}  // namespace host
