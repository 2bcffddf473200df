#include "host/probe/TcpStream.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>

#define ASIO_STANDALONE
#include <asio.hpp>

#include "host/device/InputError.h"
#include "host/probe/ProbeError.h"

namespace host {

namespace {

constexpr auto kConnecting = std::chrono::seconds(5);

}  // namespace

TcpAddress ParseTcpAddress(std::string_view text, std::uint16_t usualPort) {
  const auto refuse = [&] {
    return InputError(fmt::format("\"{}\" is no address: HOST, HOST:PORT or [ADDRESS]:PORT", text));
  };
  const bool isBracketed = text.starts_with('[');
  const std::size_t hostEnd = isBracketed ? text.find(']') : text.find(':');
  if (isBracketed && hostEnd == std::string_view::npos) throw refuse();
  TcpAddress address{std::string(text.substr(isBracketed ? 1 : 0, hostEnd - (isBracketed ? 1 : 0))),
                     usualPort};
  std::string_view rest = hostEnd == std::string_view::npos ? "" : text.substr(hostEnd);
  if (isBracketed) rest.remove_prefix(1);
  if (address.host.empty()) throw refuse();
  if (rest.empty()) return address;
  const auto [end, error] = std::from_chars(rest.data() + 1, rest.data() + rest.size(), address.port);
  if (rest[0] != ':' || error != std::errc() || end != rest.data() + rest.size() || address.port == 0)
    throw refuse();
  return address;
}

struct TcpStream::Socket {
  asio::io_context context;
  asio::ip::tcp::socket socket{context};

  // Runs what has been started for that long; true when it is done. What is not done is called off.
  bool RunFor(std::chrono::milliseconds time, const std::optional<asio::error_code>& result) {
    context.restart();
    context.run_for(time);
    if (result) return true;
    asio::error_code ignored;
    socket.cancel(ignored);
    context.restart();
    context.run();
    return *result != asio::error::operation_aborted;
  }
};

TcpStream::TcpStream(const TcpAddress& address) : socket(std::make_unique<Socket>()) {
  const auto fail = [&](const std::string& why) {
    throw ProbeError(ProbeError::Kind::NoProbe,
                     fmt::format("nobody answers at {} port {}: {}", address.host, address.port, why));
  };
  asio::error_code error;
  asio::ip::tcp::resolver resolver(socket->context);
  const auto endpoints = resolver.resolve(address.host, std::to_string(address.port), error);
  if (error) fail(error.message());
  std::optional<asio::error_code> result;
  asio::async_connect(socket->socket, endpoints,
                      [&](const asio::error_code& how, const asio::ip::tcp::endpoint&) { result = how; });
  if (!socket->RunFor(kConnecting, result)) fail("it takes too long");
  if (*result) fail(result->message());
  socket->socket.set_option(asio::ip::tcp::no_delay(true));
}

TcpStream::~TcpStream() = default;

void TcpStream::Send(std::span<const std::uint8_t> bytes) {
  asio::error_code error;
  asio::write(socket->socket, asio::buffer(bytes.data(), bytes.size()), error);
  if (!error) return;
  trouble = error.message();
  ThrowBroken();
}

std::size_t TcpStream::Receive(std::span<std::uint8_t> into, std::chrono::milliseconds timeout) {
  if (!trouble.empty()) ThrowBroken();
  std::optional<asio::error_code> result;
  std::size_t received = 0;
  socket->socket.async_read_some(asio::buffer(into.data(), into.size()),
                                 [&](const asio::error_code& how, std::size_t count) {
                                   result = how;
                                   received = count;
                                 });
  if (!socket->RunFor(timeout, result)) return 0;
  if (!*result) return received;
  trouble = result->message();
  ThrowBroken();
}

void TcpStream::ThrowBroken() const {
  throw ProbeError(ProbeError::Kind::Unplugged,
                   fmt::format("the connection to the debug probe broke: {}", trouble));
}

}  // namespace host
