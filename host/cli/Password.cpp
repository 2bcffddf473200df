#include "host/cli/Password.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "host/device/InputError.h"
#include "host/device/Passwords.h"

namespace host::cli {

namespace {

constexpr const char* kTerminal = "/dev/tty";
constexpr std::string_view kHidden = "(hidden)";

std::string FirstLine(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line))
    throw InputError(fmt::format("password file {}: cannot be read, or is empty", path));
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

// The terminal does not show what is typed for as long as this object lives.
class EchoOff {
 public:
  explicit EchoOff(int descriptor) : terminal(descriptor) {
    if (tcgetattr(terminal, &before) != 0) return;
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    isChanged = tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
  }
  ~EchoOff() {
    if (isChanged) (void)tcsetattr(terminal, TCSAFLUSH, &before);
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  int terminal;
  termios before = {};
  bool isChanged = false;
};

void SetPassword(const DeviceDescription& device, PropertyStore& settings, const std::string& password,
                 bool isHex) {
  const char* const name = isHex ? "DebugPasswordHex" : "DebugPassword";
  if (device.Find(name) == nullptr) throw InputError(fmt::format("{} takes no debug password", device.name));
  RequireSoundPassword(name, password);
  settings.Set("DebugPasswordFormatList", isHex ? "Hex" : "Text");
  settings.Set(name, password);
}

}  // namespace

void ApplyPassword(const PasswordOptions& options, const DeviceDescription& device, PropertyStore& settings) {
  if (!options.hex.empty()) return SetPassword(device, settings, options.hex, true);
  if (!options.file.empty()) return SetPassword(device, settings, FirstLine(options.file), false);
  if (options.asks) return SetPassword(device, settings, AskPassword(), false);
  if (!options.text.empty()) return SetPassword(device, settings, options.text, false);
  // Set for a whole shell, so not every device need have one.
  const char* const given = std::getenv("TOVIK_PASSWORD");
  if (given != nullptr && device.Find("DebugPassword") != nullptr)
    SetPassword(device, settings, given, false);
}

PasswordOptions AskedNow(PasswordOptions options) {
  if (!options.asks) return options;
  options.text = AskPassword();
  options.asks = false;
  if (options.text.empty()) throw InputError("no debug password was typed");
  return options;
}

bool CanAskPassword() {
  const int terminal = open(kTerminal, O_RDWR | O_CLOEXEC);
  if (terminal >= 0) close(terminal);
  return terminal >= 0;
}

std::string AskPassword() {
  const int terminal = open(kTerminal, O_RDWR | O_CLOEXEC);
  if (terminal < 0)
    throw InputError("there is no terminal to ask for the debug password at; use --password-file");
  std::string password;
  {
    const EchoOff silence(terminal);
    constexpr std::string_view kPrompt = "Debug password: ";
    (void)!write(terminal, kPrompt.data(), kPrompt.size());
    for (char typed = 0; read(terminal, &typed, 1) == 1 && typed != '\n';) password += typed;
    (void)!write(terminal, "\n", 1);
  }
  close(terminal);
  return password;
}

std::string WithoutPasswords(std::string text, const std::vector<std::string>& arguments) {
  std::vector<std::string_view> secrets;
  bool isSecretNext = false;
  for (const std::string& argument : arguments) {
    if (isSecretNext) secrets.push_back(argument);
    const bool isAboutPasswords = argument.find("assword") != std::string::npos;
    const std::size_t equals = argument.find('=');
    if (isAboutPasswords && equals != std::string::npos)
      secrets.push_back(std::string_view(argument).substr(equals + 1));
    isSecretNext = argument == "--password" || argument == "--password-hex";
  }
  for (const std::string_view secret : secrets) {
    if (secret.empty()) continue;
    for (std::size_t at = 0; (at = text.find(secret, at)) != std::string::npos; at += kHidden.size())
      text.replace(at, secret.size(), kHidden);
  }
  return text;
}

}  // namespace host::cli
