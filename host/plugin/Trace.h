#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/plugin/HostCall.h"

namespace host {

inline constexpr std::string_view kTraceFormat = "tovik-flash trace";
inline constexpr std::uint64_t kTraceVersion = 1;            // of docs/trace.md
inline constexpr std::string_view kHiddenText = "(hidden)";  // in place of a password

// What the first line of a trace says about the session.
struct TraceHeader {
  std::string program;  // with its version
  std::string plugin;   // the library's file
  std::string device;
  std::string probe;
};

// What must not reach a trace.
struct TraceSecrets {
  std::vector<std::string> settings;                 // names of the properties whose values are passwords
  std::vector<std::vector<std::uint8_t>> passwords;  // as they go over the wire, without the header word
};

// Records a session between host and plug-in, one JSON object a line: docs/trace.md describes them. Every
// line is in the file before the call that it tells of goes on, so that a plug-in that stops the process
// takes none along.
//
// A line that cannot be written ends the trace, not the session: whoever made the trace asks for Loss() at
// the end and tells it.
class Trace final : public HostCallObserver {
 public:
  // Begins the file anew. Throws InputError when it cannot be written.
  Trace(const std::string& path, const TraceHeader& header, TraceSecrets secrets);

  // What is missing and why; nothing when the trace is whole.
  [[nodiscard]] const std::optional<std::string>& Loss() const { return loss; }

  void Saw(const HostCall& call, std::uint64_t elapsedNs) override;
  void Begins(const PluginCall& call, std::uint64_t elapsedNs) override;
  void Ends(const PluginCall& call, std::uint64_t elapsedNs) override;

 private:
  [[nodiscard]] bool IsSecretSetting(const HostCall& call) const;
  [[nodiscard]] std::string DataText(const HostCall& call) const;
  [[nodiscard]] bool IsPassword(std::span<const std::uint8_t> bytes) const;
  template <typename Line>
  void Write(const Line& line);

  std::string path;
  std::ofstream file;
  TraceSecrets secrets;
  std::uint64_t lines = 0;
  std::optional<std::string> loss;
};

}  // namespace host
