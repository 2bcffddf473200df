#pragma once

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "host/probe/ProbeError.h"
#include "host/probe/Traffic.h"

namespace host {

// A register of an access port behind the chip's debug port.
struct ApRegister {
  std::uint8_t port = 0;
  std::uint8_t offset = 0;  // a multiple of 4; its bits 7-4 are the bank
  bool operator==(const ApRegister&) const = default;
};

// As an error names it.
inline std::string NameOf(ApRegister at) {
  return fmt::format("register 0x{:02x} of access port {}", at.offset, at.port);
}

// Whether the chip may fall silent with a write because it resets the debug port, too.
enum class AfterWrite { Answers, MayBeSilent };

// The way to a chip's access ports, over a probe of one kind or another. Every operation fails with
// ProbeError; none is repeated by itself, since reading a register may take a word out of it.
class ApAccess {
 public:
  ApAccess() = default;
  ApAccess(const ApAccess&) = delete;
  ApAccess& operator=(const ApAccess&) = delete;
  virtual ~ApAccess() = default;

  // From whatever state the debug port is in to access ports that can be reached.
  virtual void Connect() = 0;
  // Lets go of the chip, as well as that still works.
  virtual void Close() noexcept = 0;

  virtual std::uint32_t ReadAp(ApRegister from) = 0;
  virtual void WriteAp(ApRegister to, std::uint32_t value, AfterWrite after = AfterWrite::Answers) = 0;
  // One register over and over. A block of n makes n accesses and not one more.
  virtual void ReadApBlock(ApRegister from, std::span<std::uint32_t> words) = 0;
  virtual void WriteApBlock(ApRegister to, std::span<const std::uint32_t> words) = 0;

  // A word that the chip is going to offer: it is in `data` when `flags` has the bits of `mask`.
  struct Offer {
    ApRegister flags;
    std::uint32_t mask = 0;
    ApRegister data;
  };
  struct Fetched {
    std::uint32_t flags = 0;
    std::uint32_t word = 0;
  };
  // WriteApBlock, and behind it the word on offer where it is there by then, without a round trip of its own.
  // Who cannot do so fetches nothing. After a failure the word may be lost.
  virtual std::optional<Fetched> WriteApBlockAndFetch(ApRegister to, std::span<const std::uint32_t> words,
                                                      const Offer& /*offer*/) {
    WriteApBlock(to, words);
    return std::nullopt;
  }

  // Waits until all that was sent has happened, whether it went well or not.
  virtual void AwaitSent() noexcept {}

  // Drives the chip's reset pin, and sees to it that a pin let go has risen.
  virtual void SetResetPin(bool high) = 0;

  // The probe's clock, from any beginning.
  [[nodiscard]] virtual std::uint64_t NowNs() const {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
  }
  virtual void Sleep(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
  [[nodiscard]] virtual Traffic Counted() const = 0;
  // The wire's clock, as far as it is known.
  [[nodiscard]] virtual std::optional<std::uint32_t> WireHz() const { return std::nullopt; }

  // Fails what is under way, and all that comes except Close. From any thread, or a signal handler.
  void Cancel() noexcept { cancelled = true; }
  [[nodiscard]] bool IsCancelled() const noexcept { return cancelled; }
  void RequireGoingOn() const {
    if (IsCancelled()) throw ProbeError(ProbeError::Kind::Cancelled, "cancelled");
  }

 protected:
  // For Close, which talks to the probe once more.
  void ForgetCancel() noexcept { cancelled = false; }

 private:
  std::atomic<bool> cancelled = false;
};

}  // namespace host
