#include <algorithm>
#include <cstdio>

#include "FakeHost.h"

// The recorded calls, told as the events that they make.

namespace {

constexpr std::size_t kWordsTold = 6;  // header included

bool StartsWithAny(const std::string& text, const std::vector<std::string>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const std::string& prefix) { return text.starts_with(prefix); });
}

std::string CommandLine(const SaciCommand& command) {
  char text[24];
  std::snprintf(text, sizeof text, "SACI %u/%04X", unsigned{command.Id()}, unsigned{command.Specific()});
  std::string line = text;
  if (command.words.size() > kWordsTold) return line + " " + std::to_string(command.words.size()) + " words";
  for (std::size_t i = 1; i < command.words.size(); ++i) {
    std::snprintf(text, sizeof text, " %08X", command.words[i]);
    line += text;
  }
  return line;
}

}  // namespace

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::vector<std::string> FakeHost::Plot() const {
  std::vector<std::string> plot;
  std::string core = "(first core)";
  std::size_t command = 0;      // the next one
  std::size_t wordsToCome = 0;  // of the one before
  bool header = false;
  for (const std::string& call : calls) {
    if (call.starts_with("SetCore ")) core = call.substr(8);
    if (call.starts_with("SetCoreById ")) core = call.substr(12);
    if (call == "WriteReg SECAP_TXCTL 0x2") header = true;
    if (call.starts_with("WriteMemory SEC_AP")) {
      if (header) {
        const SaciCommand& sent = commands.at(command++);
        plot.push_back(CommandLine(sent));
        wordsToCome = sent.words.size() - 1;
      } else if (wordsToCome != 0) {
        wordsToCome = 0;
      } else {
        const std::size_t count = call.find(" x") + 2;
        plot.push_back("stream " + call.substr(count, call.find(':') - count));
      }
      header = false;
      continue;
    }
    if (call.starts_with("Report")) {
      plot.push_back(call.substr(6));
    } else if (call.starts_with("SetProperty DeviceInfo")) {
      if (call.starts_with("SetProperty DeviceInfoRevision")) plot.emplace_back("identify");
    } else if (StartsWithAny(call, {"SetProperty", "Sleep", "ResetTarget", "WriteMemory", "ReadMemory"})) {
      if (!call.starts_with("ReadMemory SEC_AP")) plot.push_back(call);
    } else if (core == "SEC_AP" && !call.starts_with("Disconnect")) {
      continue;  // of a transfer
    } else if (call.starts_with("WriteReg SECAP_RSTCTL")) {
      plot.push_back(core);
      plot.back().append(" reset request").append(call, 21);
    } else if (StartsWithAny(call, {"Connect", "Disconnect", "ReConnect"})) {
      plot.push_back(core);
      plot.back().append(" ").append(call);
    }
  }
  return plot;
}

std::vector<std::string> FakeHost::Plot(const std::vector<std::string>& prefixes) const {
  std::vector<std::string> plot = Plot();
  std::erase_if(plot, [&](const std::string& line) { return !StartsWithAny(line, prefixes); });
  return plot;
}

std::vector<std::uint8_t> FakeHost::CommandIds() const {
  std::vector<std::uint8_t> ids;
  for (const SaciCommand& command : commands) ids.push_back(command.Id());
  return ids;
}
