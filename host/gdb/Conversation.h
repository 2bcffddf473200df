#pragma once

#include <string>
#include <string_view>

#include "host/gdb/Collected.h"
#include "host/gdb/Target.h"

namespace host::gdb {

// What one client says, packet for packet, and what it is answered. Knows no sockets and no framing.
//
// A load is what comes between the first erase or write of flash and "done": it is collected, and carried out
// as one at the end. What is to be erased the plug-in decides: the ranges that clients send are checked and
// otherwise not used, for gdb leaves out sectors of which only the first byte is written. Bytes for RAM come
// before the erase: they are kept for the load, which writes them when the chip has been erased and reset.
class Conversation {
 public:
  Conversation(Target& chip, Terminal& serverTerminal);

  // The payload of the answer; empty for a packet that is not known. `console` shows the client a text before
  // the answer, where that is allowed. Throws nothing.
  std::string Answer(std::string_view packet, const Console& console);
  // A packet did not arrive whole: the load that it may have been a part of cannot be carried out.
  void Spoil();
  // The client has gone.
  void End();

 private:
  using Handler = std::string (Conversation::*)(std::string_view rest);
  struct Command;
  static const Command s_commands[];

  std::string Detach(std::string_view rest);
  std::string Kill(std::string_view rest);
  std::string Transfer(std::string_view rest);
  std::string EraseFlash(std::string_view rest);
  std::string WriteFlash(std::string_view rest);
  std::string FlashDone(std::string_view rest);
  std::string WriteMemory(std::string_view rest);
  std::string WriteMemoryHex(std::string_view rest);
  std::string ReadMemory(std::string_view rest);
  std::string MemoryCrc(std::string_view rest);
  std::string ReadRegisters(std::string_view rest);
  std::string ReadRegister(std::string_view rest);
  std::string WriteRegister(std::string_view rest);
  std::string RunMonitor(std::string_view rest);
  std::string RefuseToRun(std::string_view rest);

  std::string Dispatch(std::string_view packet);
  std::string Fail(const Command& command, const std::exception& error);
  void RequireAttached() const;
  void RequireWholeLoad() const;
  void PutRam(AddressRange range, std::string_view bytes);
  std::string RegisterText(unsigned number);
  std::uint32_t ResetAddress();
  void LoadCollected();
  void GiveUp(std::string_view why);
  void Forget();
  void ForgetRam();
  // What is wrong with each of many requests is said once.
  void ComplainOnce(const std::string& text);

  Target& target;
  Terminal& terminal;
  const Console* present = nullptr;  // the client's, while a packet is being answered
  Collected flash;
  Collected ram;
  bool isRamWritten = true;  // what `ram` holds is on the chip already
  bool isLoading = false;    // between the first erase or write of flash and "done"
  bool isSpoilt = false;     // a part of this load failed: there is no rest of it
  bool isDetached = false;
  std::string lastComplaint;
};

}  // namespace host::gdb
