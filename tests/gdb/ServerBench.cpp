#include "ServerBench.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

using namespace std::chrono_literals;

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace

void ServerBench::SetUp() {
  std::string name = (std::filesystem::temp_directory_path() / "tovik-gdb-XXXXXX").string();
  ASSERT_NE(mkdtemp(name.data()), nullptr);
  folder = name;
}

void ServerBench::TearDown() {
  if (server > 0) Stop();
  std::filesystem::remove_all(folder);
}

std::string ServerBench::Filled(std::string text) const {
  return Replaced(Replaced(std::move(text), "$FIRMWARE", TOVIK_FIRMWARE), "$PORT", std::to_string(port));
}

void ServerBench::Start(const std::string& arguments, const std::string& verb) {
  const std::string command =
      Filled("cd '" + folder.string() + "' && exec " TOVIK_FLASH_PATH " " + verb +
             " --chip board.chip --port 0 " + arguments + " > server.txt 2>&1 < /dev/null");
  std::filesystem::remove(folder / "server.txt");  // of a server before
  server = fork();
  if (server == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  const std::string listening = "Listening on 127.0.0.1:";
  ExpectServerSays(listening);
  const std::string text = ServerText();
  const std::size_t at = text.find(listening);
  ASSERT_NE(at, std::string::npos);
  port = std::stoi(text.substr(at + listening.size()));
}

int ServerBench::Stop() {
  kill(server, SIGINT);
  return Wait();
}

int ServerBench::Wait() {
  int status = 0;
  waitpid(server, &status, 0);
  server = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string ServerBench::Run(const std::string& command) {
  const std::string whole = Filled("cd '" + folder.string() + "' && timeout 60 " + command + " 2>&1");
  FILE* const pipe = popen(whole.c_str(), "r");
  std::string text;
  char buffer[4096];
  for (std::size_t count = 0; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    text.append(buffer, count);
  pclose(pipe);
  return text;
}

std::string ServerBench::Batch(std::string client, const std::string& option,
                               const std::vector<std::string>& commands) {
  for (const std::string& command : commands) client += " " + option + " '" + command + "'";
  return Run(client + " < /dev/null");
}

std::string ServerBench::GdbMi(const std::vector<std::string>& commands) {
  std::string lines;
  for (const std::string& command : commands) lines += Filled(command) + "\n";
  Write("commands.mi", lines + "-gdb-exit\n");
  return Run("gdb-multiarch -nx -q --interpreter=mi2 < commands.mi");
}

void ServerBench::ExpectServerSays(const std::string& text) {
  for (const auto end = std::chrono::steady_clock::now() + 10s; std::chrono::steady_clock::now() < end;) {
    if (ServerText().find(text) != std::string::npos) return;
    std::this_thread::sleep_for(10ms);
  }
  ADD_FAILURE() << "the server does not say \"" << text << "\":\n" << ServerText();
}

std::string ServerBench::ServerText() const {
  return Read("server.txt");
}

void ServerBench::Write(const std::string& name, const std::string& bytes) const {
  std::ofstream(folder / name, std::ios::binary) << bytes;
}

std::string ServerBench::Read(const std::string& name) const {
  std::ifstream file(folder / name, std::ios::binary);
  return (std::ostringstream() << file.rdbuf()).str();
}

void ServerBench::ExpectChipLike(const std::string& images) {
  const std::string told =
      Run(TOVIK_FLASH_PATH " load " + images + " --device serin-s20 --chip reference.chip --no-progress");
  ASSERT_FALSE(Read("reference.chip").empty()) << told;
  EXPECT_TRUE(Read("board.chip") == Read("reference.chip")) << "the chips differ";
}

RawClient::RawClient(int port) : socket(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const timeval wait{5, 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
}

RawClient::~RawClient() {
  close(socket);
}

void RawClient::Send(const std::string& bytes) const {
  EXPECT_EQ(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

std::string RawClient::ReadUntil(const std::string& end) const {
  std::string text;
  char byte = 0;
  while (!text.ends_with(end) && recv(socket, &byte, 1, 0) == 1) text += byte;
  return text;
}
