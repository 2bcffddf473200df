#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace host::net {

// What a server and one of its clients say to each other, for as long as the client is there. Bytes go out by
// the way that it was made with.
class Talk {
 public:
  virtual ~Talk() = default;
  // The client's bytes as they come, and none at times. False: the client is to be sent away.
  virtual bool Take(std::string_view bytes) = 0;
  // The client has gone, or has been sent away.
  virtual void End() = 0;
};

using Send = std::function<void(std::string_view)>;

// What a server offers.
struct Service {
  std::function<std::unique_ptr<Talk>(Send)> welcome;
  std::string busy;  // what a client is sent that comes while another one is there
  std::function<void(std::string_view)> say;
};

// Listens on this machine's own address only: whoever can connect can erase the chip. One client has the chip
// at a time; another is told so and sent away. Works on one thread, the caller's.
class Server {
 public:
  // Port 0 takes a free one. Throws InputError when the port cannot be had.
  Server(Service offered, std::uint16_t port);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] std::uint16_t Port() const;

  enum class Clients { One, Many };
  // Serves until `mustEnd`, which is asked several times a second, or until the one client has gone.
  void Run(Clients clients, const std::function<bool()>& mustEnd);

  // For a talk that is at work: moves what is to be sent, and sends away who comes meanwhile. Cheap when
  // called often. Throws nothing.
  void Breathe() noexcept;

 private:
  class Sockets;
  std::unique_ptr<Sockets> sockets;
};

}  // namespace host::net
