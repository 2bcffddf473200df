#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// The built program as a user meets it, in transcripts: tests/host/runs/*.run, each played from its first
// line to its last in a folder of its own. tests/host/runs/README.md tells the language.

namespace {

namespace fs = std::filesystem;

// At once: byte by byte, a chip file takes long without optimization.
std::string ReadText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return (std::ostringstream() << file.rdbuf()).str();
}

std::vector<fs::path> Transcripts() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(TOVIK_TRANSCRIPTS))
    if (entry.path().extension() == ".run") files.push_back(entry.path());
  return files;
}

// The words of a line; what stands between single quotes is one.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  bool isQuoted = false;
  bool isOpen = false;
  for (const char c : line) {
    if (c == '\'') {
      isQuoted = !isQuoted;
      if (isQuoted && !isOpen) words.emplace_back();
      isOpen = true;
    } else if (c == ' ' && !isQuoted) {
      isOpen = false;
    } else {
      if (!isOpen) words.emplace_back();
      isOpen = true;
      words.back() += c;
    }
  }
  return words;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

class TranscriptTest : public testing::TestWithParam<fs::path> {
 protected:
  void SetUp() override {
    std::string name = (fs::temp_directory_path() / "tovik-run-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
  }
  void TearDown() override { fs::remove_all(folder); }

  // One line that makes or changes a file, or runs the program.
  void Do(const std::string& line) {
    std::vector<std::string> words = Words(line);
    const std::string verb = words.front();
    words.erase(words.begin());
    if (verb == "run") return Run(words);
    if (verb == "make") return Make(words);
    if (verb == "images") return MakeImages();
    if (verb == "text") return Write(words.at(0), Replaced(words.at(1), "\\n", "\n"));
    if (verb == "copy") return Write(words.at(1), ReadText(folder / words.at(0)));
    if (verb == "link")
      return fs::create_symlink(Replaced(words.at(0), "$FIRMWARE", TOVIK_FIRMWARE), folder / words.at(1));
    if (verb == "mode")
      return fs::permissions(folder / words.at(0),
                             static_cast<fs::perms>(std::stoul(words.at(1), nullptr, 8)));
    if (verb == "env") return Set(words.at(0));
    if (verb == "hold") return Hold(words.at(0));
    throw std::runtime_error("no such line: " + line);
  }

  // make NAME COUNT ramp|HEX [OFFSET=HEX]...
  void Make(const std::vector<std::string>& words) {
    std::string bytes(std::stoul(words.at(1), nullptr, 0), '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
      bytes[i] =
          static_cast<char>(words.at(2) == "ramp" ? i * 7 + i / 251 : std::stoul(words.at(2), nullptr, 16));
    for (std::size_t i = 3; i < words.size(); ++i) {
      const std::size_t equals = words[i].find('=');
      for (std::size_t at = std::stoul(words[i], nullptr, 0), digit = equals + 1; digit < words[i].size();
           digit += 2)
        bytes.at(at++) = static_cast<char>(std::stoul(words[i].substr(digit, 2), nullptr, 16));
    }
    Write(words.at(0), bytes);
  }

  void MakeImages() {
    for (const char* image :
         {"main.bin 6244 ramp", "ccfg.bin 2048 FF 0x10=AAAA 0x7D0=5A", "scfg.bin 1024 FF 0x08=AA"})
      Make(Words(image));
  }

  void Write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder / name, std::ios::binary) << bytes;
  }

  void Set(const std::string& assignment) {
    const std::size_t equals = assignment.find('=');
    environment[assignment.substr(0, equals)] = assignment.substr(equals + 1);
  }

  // As another process that works on the chip.
  void Hold(const std::string& name) const {
    ASSERT_EQ(flock(open((folder / name).c_str(), O_RDONLY | O_CLOEXEC), LOCK_EX | LOCK_NB), 0);
  }

  // run [ARGUMENT]... [<FILE] [>FILE] [!DEED@FILE~TEXT]...
  void Run(const std::vector<std::string>& words) {
    before = FolderContents();
    std::vector<std::string> arguments{TOVIK_FLASH_PATH};
    std::string input = "/dev/null";
    std::string output = (folder / "out.stream").string();
    std::vector<std::string> deeds;
    for (const std::string& word : words) {
      if (word.starts_with('>')) {
        output = word.substr(1);
      } else if (word.starts_with('<')) {
        input = (folder / word.substr(1)).string();
      } else if (word.starts_with('!')) {
        deeds.push_back(word.substr(1));
      } else if (word == "$IMAGES") {
        arguments.insert(arguments.end(), {"main.bin@0x1000", "ccfg.bin@0x4C000000", "scfg.bin@0x4C001000"});
      } else {
        arguments.push_back(
            Replaced(Replaced(word, "$EMPTY_PLUGIN", TOVIK_EMPTY_PLUGIN_PATH), "$PLUGIN", TOVIK_PLUGIN_PATH));
      }
    }
    const pid_t child = fork();
    if (child == 0) Become(arguments, input, output);
    for (const std::string& deed : deeds) DoWhileRunning(child, deed);
    int status = 0;
    waitpid(child, &status, 0);
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    streams = {{"out", ReadText(folder / "out.stream")}, {"err", ReadText(folder / "err.stream")}};
    isErrorExpected = false;
    isExitExpected = false;
  }

  // DEED@FILE~TEXT: as soon as the file that the program is writing holds the text. INT interrupts the
  // program, FROM>TO copies a file.
  void DoWhileRunning(pid_t child, const std::string& deed) const {
    const std::size_t at = deed.find('@');
    const std::size_t tilde = deed.find('~');
    const fs::path file = folder / deed.substr(at + 1, tilde - at - 1);
    for (int tries = 0; ReadText(file).find(deed.substr(tilde + 1)) == std::string::npos && tries < 2000;
         ++tries)
      usleep(5000);
    const std::size_t arrow = deed.substr(0, at).find('>');
    if (arrow == std::string::npos) {
      kill(child, SIGINT);
    } else {
      Write(deed.substr(arrow + 1, at - arrow - 1), ReadText(folder / deed.substr(0, arrow)));
    }
  }

  [[noreturn]] void Become(const std::vector<std::string>& arguments, const std::string& input,
                           const std::string& output) {
    std::vector<char*> pointers(arguments.size() + 1);  // the last is null
    std::ranges::transform(arguments, pointers.begin(),
                           [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    if (chdir(folder.c_str()) != 0) _exit(127);
    fs::remove("out.stream");
    dup2(open(input.c_str(), O_RDONLY), STDIN_FILENO);
    dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDOUT_FILENO);
    dup2(open("err.stream", O_WRONLY | O_CREAT | O_TRUNC, 0666), STDERR_FILENO);
    execv(pointers[0], pointers.data());
    _exit(127);
  }

  std::map<std::string, std::string> FolderContents() const {
    std::map<std::string, std::string> contents;
    for (const auto& entry : fs::directory_iterator(folder))
      if (entry.path().extension() != ".stream") contents[entry.path().filename()] = ReadText(entry.path());
    return contents;
  }

  // One indented line: what must hold of the last run.
  void Expect(const std::string& line) {
    const std::vector<std::string> words = Words(line);
    const std::string& subject = words.at(0);
    if (subject == "exit") {
      isExitExpected = true;
      EXPECT_EQ(exitCode, std::stoi(words.at(1))) << streams["out"] << streams["err"];
      if (words.size() > 2) Expect(line.substr(line.find(words[2])));
    } else if (subject == "refused") {
      Expect("exit 2");
      Expect((words.at(1) == "~" ? "err " : "err = tovik-flash: ") + line.substr(line.find(' ') + 1));
      EXPECT_TRUE(FolderContents() == before) << "a refused run leaves all files alone";
    } else if (subject == "out" || subject == "err") {
      ExpectText(subject, words.at(1),
                 Replaced(line.substr(line.find(words.at(1)) + words.at(1).size() + 1), "\\n", "\n"));
    } else if (subject == "page") {
      ExpectOnPage(Replaced(ReadText(TOVIK_ROOT "/" + words.at(1)), "build/release/examples/firmware/", ""));
    } else if (subject == "json") {
      const nlohmann::json document = nlohmann::json::parse(streams["out"]);
      EXPECT_EQ(document.at(nlohmann::json::json_pointer(words.at(1))),
                nlohmann::json::parse(line.substr(line.find(" = ") + 3)));
    } else if (subject == "same") {
      EXPECT_TRUE(FolderContents()[words.at(1)] == before[words.at(1)]);
    } else if (subject == "changed") {
      EXPECT_FALSE(FolderContents()[words.at(1)] == before[words.at(1)]);
    } else if (subject == "absent") {
      EXPECT_FALSE(fs::exists(folder / words.at(1)));
    } else if (subject == "holds") {  // holds FILE OFFSET OTHER
      const std::string other = ReadText(folder / words.at(3));
      EXPECT_TRUE(ReadText(folder / words.at(1)).substr(std::stoul(words.at(2), nullptr, 0), other.size()) ==
                  other);
    } else if (subject == "has" || subject == "lacks") {
      std::string text = line.substr(line.find(words.at(1)) + words.at(1).size() + 1);
      if (text.starts_with('\'')) text = text.substr(1, text.size() - 2);
      EXPECT_EQ(ReadText(folder / words.at(1)).find(Replaced(text, "\\n", "\n")) != std::string::npos,
                subject == "has");
    } else if (subject == "mode") {
      EXPECT_EQ(static_cast<unsigned>(fs::status(folder / words.at(1)).permissions()),
                std::stoul(words.at(2), nullptr, 8));
    } else {
      throw std::runtime_error("no such expectation: " + line);
    }
  }

  void ExpectText(const std::string& stream, const std::string& relation, const std::string& text) {
    const std::string& said = streams[stream];
    if (stream == "err") isErrorExpected = true;
    const bool isIn = said.find(text) != std::string::npos;
    const bool holds = relation == "=" ? said == text + "\n" : isIn == (relation == "~");
    EXPECT_TRUE(holds) << text << "\nin\n" << said;
  }

  // Whole; a document may be folded otherwise there, and a manual is there line by line, without its markup.
  void ExpectOnPage(std::string page) {
    const static std::regex s_markup(R"(^\.(TH|SH|BR|PP|TP).*|^\.[A-Z]+ ?|\\f[BIR]|\\&|\\(?=-))",
                                     std::regex::ECMAScript | std::regex::multiline);
    std::string said = streams["out"];
    if (said.starts_with('{'))
      for (std::string* text : {&said, &page})
        std::erase_if(*text, [](char c) { return std::isspace(c) != 0; });
    const bool isManual = said.starts_with(".TH");
    std::istringstream lines(Replaced(std::regex_replace(said, s_markup, ""), "\\(aq", "'"));
    for (std::string line; isManual && std::getline(lines, line);)
      EXPECT_NE(page.find(line + (line.ends_with('.') ? "\n" : "")), std::string::npos) << line;
    EXPECT_TRUE(isManual || page.find(said) != std::string::npos) << said;
  }

  // What no line speaks of: a run succeeds and has nothing to complain of.
  void ExpectTheRest() {
    if (!isExitExpected) {
      EXPECT_EQ(exitCode, 0) << streams["out"] << streams["err"];
    }
    if (!isErrorExpected) {
      EXPECT_EQ(streams["err"], "");
    }
  }

  fs::path folder;
  std::map<std::string, std::string> environment;
  std::map<std::string, std::string> before;
  std::map<std::string, std::string> streams;
  int exitCode = 0;
  bool isExitExpected = true;
  bool isErrorExpected = true;
};

// The lines of a transcript with their numbers; a text that is written below its line is put behind it.
std::vector<std::pair<int, std::string>> ReadTranscript(const fs::path& path) {
  const std::string mark = "    |";
  std::istringstream lines(ReadText(path));
  std::vector<std::pair<int, std::string>> steps;
  bool isBelow = false;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const bool wasBelow = std::exchange(isBelow, line.starts_with(mark));
    if (isBelow)
      steps.back().second += (wasBelow ? "\\n" : " ") + line.substr(std::min(line.size(), mark.size() + 1));
    else if (!line.empty() && line[0] != '#')
      steps.emplace_back(number, line);
  }
  return steps;
}

TEST_P(TranscriptTest, Holds) {
  for (const auto& [number, line] : ReadTranscript(GetParam())) {
    SCOPED_TRACE(GetParam().filename().string() + ":" + std::to_string(number) + ": " + line);
    if (line[0] == ' ') {
      Expect(line.substr(line.find_first_not_of(' ')));
    } else {
      ExpectTheRest();
      Do(line);
    }
  }
  ExpectTheRest();
}

INSTANTIATE_TEST_SUITE_P(Runs, TranscriptTest, testing::ValuesIn(Transcripts()),
                         [](const auto& run) { return run.param.stem().string(); });

}  // namespace
