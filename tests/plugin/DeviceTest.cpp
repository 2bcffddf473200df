#include "DeviceTest.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <sstream>

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, separator);) {
    piece.erase(0, piece.find_first_not_of(" \n"));
    if (!piece.empty()) pieces.push_back(piece);
  }
  return pieces;
}

std::uint32_t Hex(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
}

// DEVICEID of the parts of the family that the device tells apart.
std::uint32_t DeviceIdOf(const std::string& part) {
  static const std::map<std::string, std::uint32_t> ids = {{"Serin", 0x1BB7702F},
                                                           {"HighPg1", 0x0BB9802F},
                                                           {"HighPg2", 0x1BB9802F},
                                                           {"HighNew", 0x0BBC502F},
                                                           {"Mid", 0x0BBCC02F}};
  return ids.at(part);
}

std::string Brief(const SaciCommand& command) {
  std::vector<std::size_t> transfers;
  for (const Words& words : command.streamed) transfers.push_back(words.size());
  if (command.Id() == 15)
    return fmt::format("15@{:X}+{:X}", command.words.at(2),
                       4 * std::accumulate(transfers.begin(), transfers.end(), std::size_t{0}));
  if (command.Id() == 33) return fmt::format("33:{}", fmt::join(transfers, ","));
  std::string told = std::to_string(command.Id());
  if (command.Specific() != 0) told += fmt::format("/{:X}", command.Specific());
  if (command.Id() == 6)
    told += fmt::format(":{:08X}", fmt::join(command.words.begin() + 1, command.words.end(), ","));
  return told;
}

}  // namespace

Bytes Pattern(std::size_t size, std::uint8_t seed) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(1 + (seed + i * 7) % 251);
  return bytes;
}

Bytes OpenCcfg() {
  Bytes ccfg = Pattern(kCcfgSize, 3);
  ccfg[kAuthorizationType] = 0x5A;
  return ccfg;
}

Bytes BytesOf(std::span<const std::uint32_t> words) {
  Bytes bytes(words.size_bytes());
  if (!words.empty()) std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

std::string Bench::Play(const std::string& script) {
  tale.clear();
  lastIsCommand = false;
  for (const std::string& item : Split(script, ';')) {
    const bool isSetting = item.find('=') != std::string::npos || item[0] == '-';
    if (isSetting) {
      Give(item);
      continue;
    }
    for (const std::string& step : Split(item, ' ')) {
      if (step.find_first_of("<!#~") != std::string::npos || step == "closed") {
        Give(step);
        continue;
      }
      const std::string outcome = Step(step);
      Tell();
      if (outcome != "ok" && outcome != "0") {
        tale.push_back((outcome[0] == '=' ? "" : "! ") + outcome);
        lastIsCommand = false;
      }
    }
  }
  std::string text;
  for (const std::string& piece : tale) text += (text.empty() ? "" : " | ") + piece;
  return text;
}

void Bench::Give(const std::string& setting) {
  const std::size_t mark = setting.find_first_of("=<!#~");
  const std::string name = setting.substr(0, mark);
  if (name[0] == '-') {
    host.properties.erase(name.substr(1));
  } else if (name == "closed") {
    host.ahbApEnabled = false;
  } else if (setting[mark] == '=') {
    const std::string value = setting.substr(mark + 1);
    if (name == "part") {
      host.registers["CFGAP_DEVICEID"] = DeviceIdOf(value);
    } else if (name == "deviceid") {
      host.registers["CFGAP_DEVICEID"] = Hex(value);
    } else if (name == "hsm") {
      const int file = memfd_create("hsm", MFD_CLOEXEC);
      for (const std::string& text : Split(value, ',')) {
        const std::uint32_t word = Hex(text);
        EXPECT_EQ(write(file, &word, 4), 4);
      }
      host.properties["HsmImagePath"] = "/proc/self/fd/" + std::to_string(file);
    } else if (name == "flip") {
      host.readFlips[Hex(value)] = 0x80;
    } else if (name == "status") {
      host.bootStatus = static_cast<std::uint8_t>(Hex(value));
    } else if (name == "cores") {
      const std::vector<std::string> cores = Split(value, ',');
      host.connectedCores = {cores.begin(), cores.end()};
    } else {
      host.properties[name] = value;
    }
  } else {
    const bool always = setting.find('*') != std::string::npos;
    SaciReply reply;
    for (std::size_t at = mark; at < setting.size();) {
      const std::size_t end = std::min(setting.find_first_of("<!#~", at + 1), setting.size());
      const std::size_t begin = at + (setting[at + 1] == '*' ? 2 : 1);
      const std::string value = setting.substr(begin, end - begin);
      switch (setting[at]) {
        case '!': reply.result = static_cast<std::uint8_t>(Hex(value)); break;
        case '#': reply.id = static_cast<std::uint8_t>(std::stoul(value)); break;
        case '~': reply.latePolls = static_cast<unsigned>(std::stoul(value)); break;
        default:
          for (const std::string& word : Split(value, ',')) reply.data.push_back(Hex(word));
      }
      at = end;
    }
    const auto id = static_cast<std::uint8_t>(std::stoul(name));
    if (always)
      host.ReplyAlways(id, reply);
    else
      host.ReplyOnce(id, reply);
  }
}

std::string Bench::Step(const std::string& step) {
  PluginDevice& plugin = Device();
  if (step == ".") {
    host.ForgetCalls();
    tale.clear();
    eventsTold = 0;
    commandsTold = host.commands.size();  // one that is still under way stays
    lastIsCommand = false;
    return "ok";
  }
  if (step == "?ram") return "= " + std::to_string(host.memory.size());
  if (step[0] == '?' && step.find('@') != std::string::npos) return Shown(step.substr(1));
  if (step[0] == '?') {
    const std::string& value = host.properties[step.substr(1)];
    return value.empty() ? "=" : "= " + value;
  }
  if (step == "all") {
    tellsAll = true;
    return "ok";
  }
  if (step == "init") return plugin.Initialize();
  if (step == "start") return plugin.Load(ProgramState::LoadStart);
  if (step == "end") return plugin.Load(ProgramState::LoadEnd);
  if (step == "m") return Write(0, Pattern(kSector));
  if (step == "c") return Write(kCcfg, OpenCcfg());
  if (step == "s") return Write(kScfg, Pattern(kScfgSize));
  if (step == "o") return Write(kOtp, Pattern(kOtpSize));
  if (step == "u") return Write(kUserRecord, Pattern(kUserRecordSize));
  if (step == "r") return Write(kRam, Pattern(3));

  const std::size_t mark = step.find_first_of("+*:(");
  if (mark == std::string::npos) return plugin.Perform(step.c_str());
  const std::string name = step.substr(0, mark), rest = step.substr(mark + 1);
  if (step[mark] == '(') {
    std::vector<C_RuneValue> parameters;
    if (rest != ")") parameters.emplace_back(std::stoll(rest));
    return plugin.Script(name.c_str(), parameters);
  }
  Bytes bytes;
  for (std::size_t at = mark, end = 0; step[mark] != ':' && at < step.size(); at = end) {
    end = std::min(step.find_first_of("+*", at + 1), step.size());
    const std::string part = step.substr(at + 1, end - at - 1);
    const std::size_t colon = part.find(':');
    const std::uint32_t value = colon == std::string::npos ? 0xFF : Hex(part.substr(colon + 1));
    const Bytes more = step[at] == '+' ? Pattern(Hex(part))
                                       : Bytes(Hex(part.substr(0, colon)), static_cast<std::uint8_t>(value));
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  for (std::size_t i = 0; step[mark] == ':' && i < rest.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(Hex(rest.substr(i, 2))));
  return Write(Hex(name), bytes);
}

// ID@OFFSET+LENGTH
std::string Bench::Shown(const std::string& part) const {
  const SaciCommand command = Command(static_cast<std::uint8_t>(std::stoul(part)));
  const bool isVerification = command.Id() == 16 || command.Id() == 17 || command.Id() == 27;
  const Bytes bytes = BytesOf(std::span(command.words).subspan(isVerification ? 1 : 2));
  const std::size_t begin = Hex(part.substr(part.find('@') + 1)),
                    length = Hex(part.substr(part.find('+') + 1));
  std::string text = "=";
  for (std::size_t at = begin; at < begin + length; ++at) {
    if (bytes.at(at) == 0) continue;
    if (at == begin || bytes[at - 1] == 0) text += fmt::format(" {:X}:", at);
    text += fmt::format("{:02X}", bytes[at]);
  }
  return text;
}

// Adds what has happened since it was told last.
void Bench::Tell() {
  for (; eventsTold < host.events.size(); ++eventsTold) {
    const std::string& event = host.events[eventsTold];
    if (event.starts_with("SACI ")) {
      const std::string command = Brief(host.commands.at(commandsTold++));
      if (lastIsCommand)
        tale.back() += " " + command;
      else
        tale.push_back(command);
      lastIsCommand = true;
    } else if (event.starts_with("Info ") || event.starts_with("Error ")) {
      tale.push_back(event[0] + event.substr(event.find(' ')));
      lastIsCommand = false;
    } else if (tellsAll && !event.starts_with("stream ")) {
      tale.push_back(event);
      lastIsCommand = false;
    }
  }
}

void ExpectPlays(const std::string& given, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    Bench bench;
    bench.Play(given);
    EXPECT_EQ(bench.Play(row.script), row.outcome) << row.script;
  }
}

PluginDevice& Bench::Device() {
  if (!made) {
    made.emplace(host);
    EXPECT_EQ(made->Initialize(), "ok");
    host.ForgetCalls();
  }
  return *made;
}

SaciCommand Bench::Command(std::uint8_t id) const {
  for (auto command = host.commands.rbegin(); command != host.commands.rend(); ++command)
    if (command->Id() == id) return *command;
  ADD_FAILURE() << "no command " << unsigned{id} << " was sent";
  return {Words(600), {}};
}

std::size_t Bench::CallCount(const std::string& call) const {
  return static_cast<std::size_t>(std::count(host.calls.begin(), host.calls.end(), call));
}
