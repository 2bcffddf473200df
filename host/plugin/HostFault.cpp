#include "host/plugin/HostFault.h"

#include <charconv>

#include "host/device/InputError.h"

namespace host {

namespace {
constexpr std::string_view kPrefix = "host:";
constexpr std::string_view kDefaultText = "host call failed on request";
}  // namespace

bool IsHostFault(std::string_view text) {
  return text.starts_with(kPrefix);
}

HostFault ParseHostFault(std::string_view text) {
  const std::string_view rest = IsHostFault(text) ? text.substr(kPrefix.size()) : std::string_view{};
  const std::size_t equals = rest.find('=');
  const std::string_view number = rest.substr(0, equals);

  HostFault fault;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), fault.call);
  if (error != std::errc{} || end != number.data() + number.size() || fault.call == 0)
    throw InputError("fault \"" + std::string(text) +
                     "\": expected host:N or host:N=TEXT, N counting from 1");
  fault.text = equals == std::string_view::npos ? kDefaultText : rest.substr(equals + 1);
  return fault;
}

}  // namespace host
