#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The program at a terminal: a pseudo-terminal of so many columns is its standard input, output and error.

namespace {

using testing::HasSubstr;
using testing::Not;

struct TerminalTest : testing::Test {
  TerminalTest() {
    std::string name = (std::filesystem::temp_directory_path() / "tovik-pty-XXXXXX").string();
    folder = mkdtemp(name.data());
    std::ofstream(folder / "main.bin", std::ios::binary) << std::string(200'000, '\x11');
  }
  ~TerminalTest() override { std::filesystem::remove_all(folder); }

  // All that appears on the terminal; `typed` is what the user types when `prompt` has appeared.
  std::string Run(std::vector<std::string> arguments, unsigned short columns, const std::string& prompt = "",
                  const std::string& typed = "") {
    const winsize size = {.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
      if (chdir(folder.c_str()) != 0) _exit(127);
      setenv("TERM", term.c_str(), 1);
      arguments.insert(arguments.begin(), TOVIK_FLASH_PATH);
      std::vector<char*> pointers(arguments.size() + 1);  // the last is null
      std::ranges::transform(arguments, pointers.begin(),
                             [](std::string& argument) { return argument.data(); });
      execv(pointers[0], pointers.data());
      _exit(127);
    }
    std::string shown;
    bool isTyped = typed.empty();
    char chunk[4096];
    for (ssize_t count = 0; (count = read(terminal, chunk, sizeof chunk)) > 0;) {
      shown.append(chunk, static_cast<std::size_t>(count));
      if (isTyped || shown.find(prompt) == std::string::npos) continue;
      isTyped = write(terminal, typed.data(), typed.size()) > 0;
    }
    termios left = {};
    echoes = tcgetattr(terminal, &left) == 0 && (left.c_lflag & ECHO) != 0;
    close(terminal);
    waitpid(child, &status, 0);
    return shown;
  }

  std::filesystem::path folder;
  std::string term = "xterm";
  int status = 0;
  bool echoes = false;  // as the program left the terminal
};

const std::vector<std::string> kLoad{"load", "main.bin@0", "--device", "corvel-h50", "--real-time"};

TEST_F(TerminalTest, TheProgressBarKeepsToTheWidthAndIsGoneInTheEnd) {
  for (const unsigned short columns : std::initializer_list<unsigned short>{40, 80, 200}) {
    const std::string shown = Run(kLoad, columns);
    std::size_t redraws = 0;
    std::string last;
    for (std::size_t at = shown.find("\r\x1b[K"); at != std::string::npos;
         at = shown.find("\r\x1b[K", at + 1)) {
      last = shown.substr(at + 4, shown.find_first_of("\r\n", at + 1) - at - 4);
      if (last.find('%') == std::string::npos) continue;  // wiped, and a message in its place
      ++redraws;
      EXPECT_LE(last.size(), columns) << last;
    }
    EXPECT_GE(redraws, 3U) << columns << " columns:\n" << shown;
    EXPECT_EQ(last.find('%'), std::string::npos) << last;
    EXPECT_THAT(shown, HasSubstr("Loaded and verified"));
  }
}

TEST_F(TerminalTest, ADumbTerminalGetsPlainLines) {
  term = "dumb";
  const std::string shown = Run(kLoad, 80);
  EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
  EXPECT_THAT(shown, HasSubstr("0.187\r\nconnect\r\nerase\r\nprogram\r\nverify\r\ntovik-flash: Image must"));
  std::vector<std::string> quiet = kLoad;
  quiet.emplace_back("--no-progress");
  EXPECT_LT(Run(quiet, 80).size(), shown.size());
}

TEST_F(TerminalTest, SeveralBoardsHaveALineEachThatIsGoneInTheEnd) {
  std::vector<std::string> both = kLoad;
  both.insert(both.end(), {"--chip", "one.chip", "--chip", "two.chip"});
  const std::string shown = Run(both, 80);
  for (const char* drawn :
       {"\x1b[2A\r\x1b[Kone.chip  program", "\x1b[1A\r\x1b[Ktwo.chip  done", "\x1b[2A\r\x1b[J"})
    EXPECT_THAT(shown, HasSubstr(drawn));
}

TEST_F(TerminalTest, APasswordIsAskedForAndNotShown) {
  const std::string shown =
      Run({"info", "--device", "serin-s20", "--ask-password"}, 80, "Debug password: ", "open barley\n");
  EXPECT_EQ(WEXITSTATUS(status), 0) << shown;
  EXPECT_THAT(shown, HasSubstr("Debug password: "));
  EXPECT_THAT(shown, Not(HasSubstr("barley")));
  EXPECT_TRUE(echoes);
  const std::string tooLong(65, 'b');
  const std::string refused =
      Run({"unlock", "--device", "serin-s20"}, 80, "Debug password: ", tooLong + "\n");
  EXPECT_EQ(WEXITSTATUS(status), 2) << refused;
  EXPECT_THAT(refused, Not(HasSubstr("bb")));
}

}  // namespace
