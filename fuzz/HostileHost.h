#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "ByteSource.h"
#include "Require.h"
#include "host/plugin/CallChecker.h"
#include "host/plugin/HostServices.h"

namespace fuzz {

// The host's services over a probe that lies, as the input says: calls are refused, and the probe fails when
// it has done what it was asked, does nothing, or answers with other registers and memory than the chip's.
//
// Stops the process when the plug-in breaks a rule of CallChecker, which it owes its host whatever the host
// answers, or when a message, property or error text holds a password.
class HostileHost final : private host::DebugProbe, private host::HostCallObserver {
 public:
  // A character that is in every password and in no text that this host invents.
  static constexpr char kSecretMark = '\x7F';

  // The probe and the settings are kept by reference. `source` reads: how many calls are honest, the kind of
  // the lie, what the lie needs; and again. When it has run out, all calls are honest.
  HostileHost(host::DebugProbe& honestProbe, host::PropertyStore& settings, const host::WireSizes& sizes,
              ByteSource source)
      : services(*this, settings), honest(honestProbe), checker(sizes), answers(source) {
    services.AddObserver(checker);
    services.AddObserver(*this);
    ReadHonestCalls();
    services.ConnectDebugPort();
  }

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return services.Utility(); }

  void BeHostile() { lies = true; }
  // From here on, with the debug port connected.
  void BeHonest() {
    lies = false;
    lie = Lie::None;
    services.ResetCancel();
    (void)services.table->sleep(&services, 0);  // a refusal that is still to come strikes this call
    services.ConnectDebugPort();
  }

  // Around every operation of the plug-in: `error` is what it returned, and given back.
  void BeginOperation(std::string_view name) {
    callsBefore = services.CallCount();
    services.ResetCancel();
    services.TellBegin({.function = name});
  }
  const char* EndOperation(std::string_view name, const char* error) {
    host::PluginCall call{.function = name};
    if (error != nullptr) call.error = error;
    services.TellEnd(call);
    return error;
  }

 private:
  enum class Lie { None, FailWhenDone, DoNothing, Distort };

  // What the plug-in has done so far, and whether the next call is honest.
  void Saw(const host::HostCall& call, std::uint64_t) override {
    if (call.function.starts_with("Report")) RequireNoSecret(call.subject);
    if (call.function.starts_with("Set")) RequireNoSecret(call.text);
    RequireKeptRules();
    // Ends the waits that have no time-out of their own, which are the host's to end.
    if (services.CallCount() - callsBefore == kMostCallsPerOperation) services.Cancel();
    if (!lies || answers.IsEmpty() || honestCalls-- > 0) return;
    const unsigned kind = answers.Byte() % 4;
    ReadHonestCalls();
    if (kind == 0) return services.Fail({.call = services.CallCount() + 1, .text = InventedText()});
    constexpr Lie kLies[] = {Lie::None, Lie::FailWhenDone, Lie::DoNothing, Lie::Distort};
    lie = kLies[kind];
  }
  void Ends(const host::PluginCall& call, std::uint64_t) override {
    RequireNoSecret(call.error);
    RequireKeptRules();
  }

  // The probe. A lie is told by the first of these that is asked for anything.
  void Connect(host::Core core) override {
    Do([&] { honest.Connect(core); });
  }
  void Disconnect(host::Core core) override {
    Do([&] { honest.Disconnect(core); });
  }
  void PinReset() override {
    Do([&] { honest.PinReset(); });
  }
  [[nodiscard]] std::optional<std::uint32_t> FindRegister(std::string_view name) const override {
    std::optional<std::uint32_t> address;
    const bool isLie = Do([&] { address = honest.FindRegister(name); });
    return isLie ? answers.Word() : address;
  }
  [[nodiscard]] std::uint32_t ReadRegister(std::uint32_t address) override {
    std::uint32_t value = 0;
    const bool isLie = Do([&] { value = honest.ReadRegister(address); });
    return isLie ? answers.Word() : value;
  }
  void WriteRegister(std::uint32_t address, std::uint32_t value) override {
    Do([&] { honest.WriteRegister(address, value); });
  }
  void PushWords(std::span<const std::uint32_t> words) override {
    Do([&] { honest.PushWords(words); });
  }
  // What a lie leaves out stays as the chip had it, or zero: never what happened to lie in the buffer.
  void PopWords(std::span<std::uint32_t> words) override {
    std::ranges::fill(words, 0U);
    if (!Do([&] { honest.PopWords(words); })) return;
    for (std::uint32_t& word : words.first(std::min(words.size(), kInventedWords))) word = answers.Word();
  }
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes, std::size_t size) override {
    Do([&] { honest.WriteMemory(address, bytes, size); });
  }
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t size) override {
    std::ranges::fill(bytes, std::uint8_t{0});
    if (Do([&] { honest.ReadMemory(address, bytes, size); }))
      std::ranges::copy(answers.Take(bytes.size()), bytes.begin());
  }
  void Sleep(std::uint32_t milliseconds) override {
    Do([&] { honest.Sleep(milliseconds); });
  }
  [[nodiscard]] std::uint64_t ElapsedNs() const override { return honest.ElapsedNs(); }

  // Whether the answer is to be a lie.
  template <typename Deed>
  bool Do(Deed&& deed) const {
    const Lie told = std::exchange(lie, Lie::None);
    if (told != Lie::DoNothing) deed();
    if (told == Lie::FailWhenDone) throw std::runtime_error(InventedText());
    return told != Lie::None;
  }
  // Large numbers reach far into a load with one byte.
  void ReadHonestCalls() {
    const unsigned byte = answers.Byte();
    honestCalls = byte < 200 ? byte : 200 + (byte - 200) * 20;
  }
  [[nodiscard]] std::string InventedText() const {
    std::string invented = answers.Text();
    std::ranges::replace(invented, kSecretMark, '?');
    return invented;
  }

  static void RequireNoSecret(std::optional<std::string_view> shown) {
    Require(shown.value_or("").find(kSecretMark) == std::string_view::npos, "a text shows a password");
  }
  void RequireKeptRules() const {
    // Kept only by operations that come in the order that a debugger has.
    constexpr std::string_view kOrdered[] = {"connect first", "debug port", "in SACI", "sequence"};
    for (const host::CallFinding& finding : checker.Findings())
      Require(std::ranges::find(kOrdered, finding.rule) != std::end(kOrdered),
              std::string(finding.rule) + ", call " + std::to_string(finding.call) + ": " + finding.what);
  }

  static constexpr std::uint64_t kMostCallsPerOperation = 20'000;
  static constexpr std::size_t kInventedWords = 12;  // a response header and the words that are looked at

  host::HostServices services;
  host::DebugProbe& honest;
  host::CallChecker checker;
  mutable ByteSource answers;
  mutable Lie lie = Lie::None;  // to be told by the probe
  unsigned honestCalls = 0;
  bool lies = true;
  std::uint64_t callsBefore = 0;  // of the present operation
};

}  // namespace fuzz
