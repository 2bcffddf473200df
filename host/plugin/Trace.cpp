#include "host/plugin/Trace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "host/device/InputError.h"

namespace host {

namespace {

constexpr std::size_t kShownBytes = 32;  // of a transfer: enough for a command header and its first words
constexpr std::string_view kHidden = "(hidden)";

}  // namespace

Trace::Trace(const std::string& tracePath) : path(tracePath), file(tracePath, std::ios::trunc) {
  if (!file) throw InputError(fmt::format("trace file {}: {}", path, std::strerror(errno)));
}

void Trace::Hide(const std::string& secret) {
  if (!secret.empty()) secrets.push_back(secret);
}

void Trace::Record(const HostCall& call, std::uint64_t elapsedNs) {
  nlohmann::ordered_json line;
  line["n"] = call.number;
  line["ms"] = static_cast<double>(elapsedNs) / 1e6;
  line["core"] = call.core;
  line["call"] = call.function;
  if (call.subject) line["name"] = *call.subject;
  if (call.text) line["text"] = IsSecret(*call.text) ? kHidden : *call.text;
  if (call.address) line["address"] = fmt::format("0x{:08x}", *call.address);
  if (call.value) line["value"] = fmt::format("0x{:08x}", *call.value);
  if (call.elementSize != 0) {
    line["bytes"] = call.data.size();
    line["element"] = call.elementSize;
    const std::string_view bytes(reinterpret_cast<const char*>(call.data.data()), call.data.size());
    const auto shown = call.data.first(std::min(kShownBytes, call.data.size()));
    line["data"] = IsSecret(bytes) ? std::string(kHidden) : fmt::format("{:02x}", fmt::join(shown, ""));
  }
  if (call.error) line["error"] = *call.error;

  // A plug-in may hand over any bytes as text; the file stays valid JSON.
  file << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  if (!file) throw std::runtime_error(fmt::format("trace file {}: cannot write", path));
}

bool Trace::IsSecret(std::string_view bytes) const {
  return std::any_of(secrets.begin(), secrets.end(),
                     [&](const std::string& secret) { return bytes.find(secret) != std::string_view::npos; });
}

}  // namespace host
