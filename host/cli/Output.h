#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/Format.h"

namespace host::cli {

// Where a verb's words go. As text: results on standard output, complaints on standard error, as they come.
// As JSON: exactly one document on standard output, at the end, and complaints on standard error all the
// same. Control characters in what is said are shown, not sent to the terminal.
class Output {
 public:
  void UseJson() { isJson = true; }
  [[nodiscard]] bool IsJson() const { return isJson; }

  // A line or more of text; nothing where JSON is wanted.
  void Say(std::string_view text);
  // One line on standard error, led by the program's name.
  void Complain(std::string_view text);
  // Lines on standard error that belong to the complaint before.
  void Explain(std::string_view text);
  // A message of the plug-in: information is said, errors are complained of.
  void Show(const LoadMessage& message);
  // Bytes as they are; only where text is wanted.
  void Write(std::span<const std::uint8_t> bytes);

  // An output for one of several boards that are worked on at once: it keeps its words until Release, and its
  // complaints name the board.
  [[nodiscard]] Output ForBoard(std::string_view name) const;
  void Release();

  // The verb's document: the fields that its page lists.
  Json document = Json::object();

  // Prints the document where JSON is wanted, led by "schema", "verb", "exit_code" and "error", and sees to
  // it that all is written. Returns the exit code, or kFailed where standard output has lost something.
  int Finish(std::string_view verb, int exitCode, std::string_view error = {});

 private:
  struct Kept {
    std::FILE* stream;
    std::string text;
  };

  void Print(std::FILE* stream, std::string_view text);

  bool isJson = false;
  std::string board;  // empty where there is only one: then nothing is kept
  std::vector<Kept> kept;
};

// `text` with its control characters, line ends and tabs aside, as \xNN.
std::string Printable(std::string_view text);

}  // namespace host::cli
