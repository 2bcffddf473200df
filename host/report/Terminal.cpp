#include "host/report/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace host {

std::optional<Terminal> TerminalOf(std::FILE* stream) {
  if (isatty(fileno(stream)) == 0) return std::nullopt;
  Terminal terminal;
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0) {
    if (size.ws_col > 0) terminal.width = size.ws_col;
    if (size.ws_row > 0) terminal.height = size.ws_row;
  }
  const char* const kind = std::getenv("TERM");
  terminal.isDumb = kind == nullptr || std::string_view(kind) == "dumb";
  return terminal;
}

}  // namespace host
