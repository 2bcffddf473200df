#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "host/plugin/HostCall.h"

namespace host {

// Records every call of the plug-in into the host, one JSON object a line, in the order of the calls:
//   {"n":7,"ms":12.25,"core":"CS_DAP_0","call":"ReadReg","address":"0x00000010","value":"0x00200304"}
// Moved memory shows as its byte count and its first bytes. A failed call has "error".
class Trace {
 public:
  // Throws InputError when the file cannot be written.
  explicit Trace(const std::string& path);

  // Texts that must not reach the file, whether as a property's value or within moved memory: passwords.
  void Hide(const std::string& secret);

  // `elapsedNs` is the probe's time at the end of the call. Throws std::runtime_error when the disk is full.
  void Record(const HostCall& call, std::uint64_t elapsedNs);

 private:
  [[nodiscard]] bool IsSecret(std::string_view bytes) const;

  std::string path;
  std::ofstream file;
  std::vector<std::string> secrets;
};

}  // namespace host
