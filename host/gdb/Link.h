#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "host/gdb/Conversation.h"
#include "host/gdb/Packets.h"

namespace host::gdb {

// One client's end of the protocol: bytes in, bytes out. Acknowledges what comes until the client wants none,
// and repeats an answer that the client asks for again.
class Link {
 public:
  using Send = std::function<void(std::string_view)>;
  Link(Target& target, Terminal& serverTerminal, Send sendBytes);

  void Take(std::string_view bytes);
  // The client has gone.
  void End() { conversation.End(); }

 private:
  void Take(const Received& received);
  void Answer(std::string_view packet);
  // Said once for each kind.
  void Complain(std::string_view text);

  Terminal& terminal;
  Send send;
  PacketReader reader;
  Conversation conversation;
  bool acknowledges = true;
  std::string lastAnswer;  // as it went over the wire
  std::string lastComplaint;
};

}  // namespace host::gdb
