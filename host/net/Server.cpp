#include "host/net/Server.h"

#include <fmt/format.h>

#define ASIO_STANDALONE
#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <utility>

#include "host/device/InputError.h"

namespace host::net {

namespace {

using asio::ip::tcp;
using namespace std::chrono_literals;

constexpr auto kLongestWait = 100ms;  // for an interrupt to be seen
constexpr auto kBreath = 50ms;
constexpr std::size_t kMostUnsent = std::size_t{4} << 20;  // of a client that does not read its answers

// A connection, and the bytes that wait on both sides of it. Kept alive by what it has asked the system for.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  explicit Connection(tcp::socket connected) : socket(std::move(connected)) {
    asio::error_code ignored;
    (void)socket.set_option(tcp::no_delay(true), ignored);
  }

  // Begins to wait for bytes, unless some are waiting to be taken.
  void Receive() {
    if (isReceiving || isGone || !received.empty()) return;
    isReceiving = true;
    socket.async_read_some(asio::buffer(buffer),
                           [self = shared_from_this()](const asio::error_code& error, std::size_t count) {
                             self->isReceiving = false;
                             self->received.append(self->buffer.data(), count);
                             self->isGone = self->isGone || error;
                           });
  }
  std::string TakeReceived() { return std::exchange(received, {}); }

  void Send(std::string_view bytes) {
    if (isGone) return;
    unsent += bytes;
    if (unsent.size() > kMostUnsent) {
      Close();
    } else if (sending.empty()) {
      SendOn();
    }
  }

  [[nodiscard]] bool IsGone() const { return isGone; }
  [[nodiscard]] bool HasUnsent() const { return !isGone && !sending.empty(); }
  // After what has been sent.
  void CloseOutput() {
    asio::error_code ignored;
    (void)socket.shutdown(tcp::socket::shutdown_send, ignored);
  }
  void Close() {
    isGone = true;
    asio::error_code ignored;
    (void)socket.close(ignored);
  }

 private:
  void SendOn() {
    sending = std::exchange(unsent, {});
    if (sending.empty()) return;
    asio::async_write(socket, asio::buffer(sending),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                        self->sending.clear();
                        if (error) {
                          self->isGone = true;
                        } else {
                          self->SendOn();
                        }
                      });
  }

  tcp::socket socket;
  std::array<char, 0x4000> buffer{};
  std::string received;
  std::string sending;
  std::string unsent;
  bool isReceiving = false;
  bool isGone = false;
};

}  // namespace

class Server::Sockets {
 public:
  Sockets(Service offered, std::uint16_t port) : service(std::move(offered)), acceptor(context) {
    try {
      const tcp::endpoint own(asio::ip::address_v4::loopback(), port);
      acceptor.open(own.protocol());
      acceptor.set_option(tcp::acceptor::reuse_address(true));
      acceptor.bind(own);
      acceptor.listen();
    } catch (const asio::system_error& error) {
      throw InputError(
          fmt::format("port {}: {}; --port takes another, 0 a free one", port, error.code().message()));
    }
    Accept();
  }

  [[nodiscard]] std::uint16_t Port() const { return acceptor.local_endpoint().port(); }

  void Run(Clients clients, const std::function<bool()>& mustEnd) {
    while (!mustEnd()) {
      if (client) client->Receive();
      context.run_one_for(kLongestWait);
      if (!client) continue;
      if (!talk->Take(client->TakeReceived())) client->Close();
      if (!client->IsGone()) continue;
      talk->End();
      talk.reset();
      client.reset();
      service.say("The client has gone\n");
      if (clients == Clients::One) break;
    }
    // The last answers.
    const auto end = std::chrono::steady_clock::now() + 1s;
    while (client && client->HasUnsent() && std::chrono::steady_clock::now() < end)
      context.run_one_for(kLongestWait);
  }

  void Breathe() {
    const auto now = std::chrono::steady_clock::now();
    if (now - lastBreath < kBreath) return;
    lastBreath = now;
    context.poll();
  }

 private:
  void Accept() {
    acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
      if (!error) Welcome(std::make_shared<Connection>(std::move(socket)));
      Accept();
    });
  }

  void Welcome(const std::shared_ptr<Connection>& newcomer) {
    if (client) {
      service.say("Another client came, and was sent away\n");
      SendAway(newcomer);
      return;
    }
    service.say("A client has connected\n");
    client = newcomer;
    talk = service.welcome([connection = newcomer](std::string_view bytes) { connection->Send(bytes); });
  }

  // A client listens only after it has asked: it has a moment for that.
  void SendAway(const std::shared_ptr<Connection>& newcomer) {
    newcomer->Receive();
    const auto timer = std::make_shared<asio::steady_timer>(context, 300ms);
    timer->async_wait([this, newcomer, timer](const asio::error_code&) {
      newcomer->Send(service.busy);
      newcomer->CloseOutput();
    });
  }

  Service service;
  asio::io_context context;
  tcp::acceptor acceptor;
  std::shared_ptr<Connection> client;
  std::unique_ptr<Talk> talk;  // with `client`
  std::chrono::steady_clock::time_point lastBreath;
};

Server::Server(Service offered, std::uint16_t port)
    : sockets(std::make_unique<Sockets>(std::move(offered), port)) {}
Server::~Server() = default;

std::uint16_t Server::Port() const {
  return sockets->Port();
}

void Server::Run(Clients clients, const std::function<bool()>& mustEnd) {
  sockets->Run(clients, mustEnd);
}

void Server::Breathe() noexcept {
  try {
    sockets->Breathe();
  } catch (...) {
    // A socket's trouble shows where it is read; the work goes on.
  }
}

}  // namespace host::net
