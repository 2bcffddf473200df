#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

// A server of the built program on a port of its own, in a folder of its own, and the clients that Debian has
// for it. Texts may say $FIRMWARE for the folder of the example firmware and $PORT for the server's port.
class ServerBench : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void Start(const std::string& arguments, const std::string& verb = "gdbserver");
  // Interrupts the server and returns its exit code.
  int Stop();
  // Waits for a server that ends by itself.
  int Wait();

  // Runs a shell command in the folder and returns all that it printed.
  std::string Run(const std::string& command);
  // Every command on its own, whatever became of the one before.
  std::string Batch(std::string client, const std::string& option, const std::vector<std::string>& commands);
  std::string GdbMi(const std::vector<std::string>& commands);

  // Waits for the server to have said it.
  void ExpectServerSays(const std::string& text);
  [[nodiscard]] std::string ServerText() const;
  void Write(const std::string& name, const std::string& bytes) const;
  [[nodiscard]] std::string Read(const std::string& name) const;
  // The chip is as `tovik-flash load` leaves one, byte for byte.
  void ExpectChipLike(const std::string& images);

  std::filesystem::path folder;
  int port = 0;

 private:
  [[nodiscard]] std::string Filled(std::string text) const;
  pid_t server = -1;
};

// A client of bytes.
class RawClient {
 public:
  explicit RawClient(int port);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void Send(const std::string& bytes) const;
  // Reads until `end` has come, the server has closed, or nothing comes for a while.
  [[nodiscard]] std::string ReadUntil(const std::string& end) const;

 private:
  int socket = -1;
};
