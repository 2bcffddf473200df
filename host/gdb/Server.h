#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "host/gdb/Target.h"

namespace host::gdb {

// Listens on this machine's own address only: whoever can connect can erase the chip. One client has the chip
// at a time; another is told so and sent away. Works on one thread, the caller's.
class Server {
 public:
  // Port 0 takes a free one. Throws InputError when the port cannot be had.
  Server(Target& itsTarget, Terminal& serverTerminal, std::uint16_t port);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] std::uint16_t Port() const;

  enum class Clients { One, Many };
  // Serves until `mustEnd`, which is asked several times a second, or until the one client has gone.
  void Run(Clients clients, const std::function<bool()>& mustEnd);

  // For a target that is at work: moves what is to be sent, and sends away who comes meanwhile. Cheap when
  // called often. Throws nothing.
  void Breathe() noexcept;

 private:
  class Sockets;
  std::unique_ptr<Sockets> sockets;
};

}  // namespace host::gdb
