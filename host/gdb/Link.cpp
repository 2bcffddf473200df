#include "host/gdb/Link.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

namespace host::gdb {

Link::Link(Target& target, Terminal& serverTerminal, net::Send sendBytes)
    : terminal(serverTerminal), send(std::move(sendBytes)), conversation(target, serverTerminal) {}

bool Link::Take(std::string_view bytes) {
  for (const Received& received : reader.Take(bytes)) TakeOne(received);
  return true;
}

void Link::TakeOne(const Received& received) {
  switch (received.kind) {
    case Received::Kind::Packet:
      if (acknowledges) send("+");
      Answer(received.payload);
      return;
    case Received::Kind::Damaged:
      Complain("the client sent a packet with a wrong checksum");
      if (!acknowledges) conversation.Spoil();
      send(acknowledges ? "-" : Packet("E01"));
      return;
    case Received::Kind::TooLong:
      Complain(fmt::format("the client sent a packet of more than {} bytes", kPacketSize));
      conversation.Spoil();
      if (acknowledges) send("+");
      send(lastAnswer = Packet("E01"));
      return;
    case Received::Kind::Resend:
      if (acknowledges) send(lastAnswer);
      return;
    case Received::Kind::Garbage:
      Complain("the client sent bytes that are no packet; is it a debugger?");
      return;
  }
}

void Link::Answer(std::string_view packet) {
  const Console console = [this](std::string_view text) { send(Packet("O" + ToHex(text))); };
  const std::string answer = conversation.Answer(packet, console);
  if (packet == "QStartNoAckMode") acknowledges = false;
  send(lastAnswer = Packet(answer));
}

void Link::Complain(std::string_view text) {
  if (text != lastComplaint) terminal.Complain(text);
  lastComplaint = text;
}

net::Service ServiceFor(Target& target, Terminal& terminal) {
  return {
      .welcome = [&](net::Send send) { return std::make_unique<Link>(target, terminal, std::move(send)); },
      .busy = "+" + Packet(ErrorAnswer("another client has the chip")),
      .say = [&](std::string_view text) { terminal.Say(text); }};
}

}  // namespace host::gdb
