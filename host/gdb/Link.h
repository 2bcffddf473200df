#pragma once

#include <string>
#include <string_view>

#include "host/gdb/Conversation.h"
#include "host/gdb/Packets.h"
#include "host/net/Server.h"

namespace host::gdb {

// One client's end of the protocol: bytes in, bytes out. Acknowledges what comes until the client wants none,
// and repeats an answer that the client asks for again.
class Link final : public net::Talk {
 public:
  Link(Target& target, Terminal& serverTerminal, net::Send sendBytes);

  // Whatever comes, the client may stay.
  bool Take(std::string_view bytes) override;
  void End() override { conversation.End(); }

 private:
  void TakeOne(const Received& received);
  void Answer(std::string_view packet);
  // Said once for each kind.
  void Complain(std::string_view text);

  Terminal& terminal;
  net::Send send;
  PacketReader reader;
  Conversation conversation;
  bool acknowledges = true;
  std::string lastAnswer;  // as it went over the wire
  std::string lastComplaint;
};

// What a server of this protocol offers. Target and terminal must outlive it.
net::Service ServiceFor(Target& target, Terminal& terminal);

}  // namespace host::gdb
