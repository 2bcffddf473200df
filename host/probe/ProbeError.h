#pragma once

#include <stdexcept>
#include <string>

namespace host {

// What a debug probe, or the chip behind it, failed in. The text is complete and says what to do about it.
class ProbeError : public std::runtime_error {
 public:
  enum class Kind {
    NoProbe,       // none that fits
    NoPermission,  // there, but not ours to open
    NoTarget,      // the chip does not answer the probe
    Wait,          // it answers WAIT for too long
    Fault,         // it refused an access
    BadAnswer,     // the probe's answer is none to what was asked
    Unplugged,
    TimedOut,  // the probe does not answer
    Cancelled,
  };

  ProbeError(Kind kindOfFailure, const std::string& text) : std::runtime_error(text), kind(kindOfFailure) {}

  [[nodiscard]] Kind Which() const { return kind; }

 private:
  Kind kind;
};

}  // namespace host
