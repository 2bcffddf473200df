#include "ProgramRun.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

std::string Quoted(const std::string& argument) {
  std::string quoted = "'";
  for (const char c : argument) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TestFolder::TestFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "tovik-flash-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder = name;
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

std::string TestFolder::Write(const std::string& name, const Bytes& bytes) const {
  return Write(name, std::string(bytes.begin(), bytes.end()));
}

std::string TestFolder::Write(const std::string& name, const std::string& text) const {
  std::ofstream(folder / name, std::ios::binary) << text;
  return Path(name);
}

Bytes TestFolder::Read(const std::string& name) const {
  const std::string text = ReadText(folder / name);
  return {text.begin(), text.end()};
}

ProgramRun TestFolder::Run(const std::vector<std::string>& arguments) const {
  std::string command = Quoted(TOVIK_FLASH_PATH);
  for (const std::string& argument : arguments) command += " " + Quoted(argument);
  command += " > " + Quoted(Path("stdout")) + " 2> " + Quoted(Path("stderr")) + " < /dev/null";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadText(folder / "stdout"),
          ReadText(folder / "stderr")};
}
