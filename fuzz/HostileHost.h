#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "ByteSource.h"
#include "IFlashProgrammerUtility2.h"

namespace fuzz {

// Stands between the plug-in and an honest host, and lies as the input says: it refuses calls, does not do
// what it says it did, and answers with other registers, memory, connections and properties. Register values
// and addresses stay within 32 bits: wider ones break the contract, and the plug-in stops the process.
//
// Watches what the plug-in owes its host whatever the host answers, and stops the process when it does not
// hold:
// - a transfer through the security access port is followed at once by the switch back to "CS_DAP_0";
// - after a refused call comes nothing more, but for that switch;
// - no message, property or error text holds a password.
class HostileHost : public HostObject {
 public:
  // A character that is in every password and in no text that this host invents.
  static constexpr char kSecretMark = '\x7F';

  // `honestHost` is kept by reference. `source` reads: how many calls are honest, the kind of the lie, what
  // the lie needs; and again. When it has run out, all calls are honest.
  HostileHost(HostObject& honestHost, ByteSource source);
  HostileHost(const HostileHost&) = delete;
  HostileHost& operator=(const HostileHost&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  void SetLying(bool lying) { lies = lying; }

  // Around every operation of the plug-in: `error` is what it returned. Checks that a refused call has failed
  // the operation, with the text of the refusal.
  void BeginOperation();
  void EndOperation(const char* error);

 private:
  struct Entries;
  enum class Lie { None, Refuse, RefuseWhenDone, DoNothing, Distort };

  [[nodiscard]] Lie NextLie();
  void ReadHonestCalls();
  Lie Begin(bool isSwitchBack);
  const char* Refuse(const std::string& text);
  [[nodiscard]] std::string InventedText();
  template <typename Forward>
  const char* Answer(bool isSwitchBack, Forward&& forward);
  template <typename Forward, typename Distort>
  const char* Answer(bool isSwitchBack, Forward&& forward, Distort&& distort);

  HostObject& honest;
  ByteSource answers;
  unsigned honestCalls = 0;
  bool lies = true;

  unsigned calls = 0;  // in the present operation
  bool owesSwitchBack = false;
  bool switchedBackAfterRefusal = false;
  std::optional<std::string> refusal;  // the operation's first
  std::string text;                    // the last one handed out
};

}  // namespace fuzz
