#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace host {

struct TcpAddress {
  std::string host;
  std::uint16_t port = 0;
};
// "host", "host:port", or "[v6 address]:port". Throws InputError.
TcpAddress ParseTcpAddress(std::string_view text, std::uint16_t usualPort);

// A connection over TCP that sends small pieces at once. Failures are ProbeError: NoProbe while connecting,
// Unplugged later.
class TcpStream {
 public:
  explicit TcpStream(const TcpAddress& address);
  ~TcpStream();

  void Send(std::span<const std::uint8_t> bytes);
  // What has come, at least one byte; 0 when nothing comes in this time.
  std::size_t Receive(std::span<std::uint8_t> into, std::chrono::milliseconds timeout);

 private:
  struct Socket;
  [[noreturn]] void ThrowBroken() const;

  std::unique_ptr<Socket> socket;
  std::string trouble;  // why the connection is at its end: it fails at once from then on
};

}  // namespace host
