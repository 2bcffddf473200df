#include "host/cli/Output.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"

namespace host::cli {

namespace {

constexpr int kSchema = 1;  // of all documents; docs/json.md

// The plug-in ends some of its lines itself.
std::string_view WithoutLineEnd(std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

std::string Indented(std::string_view text) {
  std::string indented;
  for (const char c : text) {
    indented += c;
    if (c == '\n') indented += "    ";
  }
  return indented;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isControl = (byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7F;
    printable += isControl ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
  }
  return printable;
}

void Output::Say(std::string_view text) {
  if (!isJson) Print(stdout, Printable(text));
}

void Output::Complain(std::string_view text) {
  const std::string where = board.empty() ? "" : board + ": ";
  Print(stderr,
        fmt::format("tovik-flash: {}{}\n", Printable(where), Indented(Printable(WithoutLineEnd(text)))));
}

void Output::Explain(std::string_view text) {
  Print(stderr, Printable(text));
}

void Output::Show(const LoadMessage& message) {
  if (message.isError) {
    Complain(message.text);
  } else {
    Say(fmt::format("  | {}\n", Indented(WithoutLineEnd(message.text))));
  }
}

void Output::Write(std::span<const std::uint8_t> bytes) {
  Print(stdout, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Output Output::ForBoard(std::string_view name) const {
  Output output;
  output.isJson = isJson;
  output.board = name;
  return output;
}

void Output::Release() {
  board.clear();
  for (const Kept& words : kept) Print(words.stream, words.text);
  kept.clear();
}

// Failures show when the stream is flushed and asked, in Finish.
void Output::Print(std::FILE* stream, std::string_view text) {
  if (!board.empty()) {
    kept.push_back({stream, std::string(text)});
    return;
  }
  if (stream == stderr) std::fflush(stdout);  // so that the lines keep their order on a terminal
  (void)std::fwrite(text.data(), 1, text.size(), stream);
}

int Output::Finish(std::string_view verb, int exitCode, std::string_view error) {
  if (isJson) {
    Json whole = {{"schema", kSchema},
                  {"verb", verb},
                  {"exit_code", exitCode},
                  {"error", error.empty() ? Json(nullptr) : Json(error)}};
    whole.update(document);
    Print(stdout, whole.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  }
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return exitCode;
  Complain(fmt::format("standard output: {}", errno != 0 ? std::strerror(errno) : "write error"));
  return exitCode == kDone || exitCode == kErrorsReported ? kFailed : exitCode;
}

}  // namespace host::cli
