// Runs plays/*.play, each scene as a test of its own. A line of a scene is a script and, behind "->", what
// comes of it (DeviceTest.h says how both are written); indented lines continue it. "given" begins every
// script of its scene; "$name = text" stands for a text in all lines below.

#include <filesystem>
#include <fstream>
#include <regex>

#include "DeviceTest.h"

namespace {

struct Scene {
  std::string file, name, given;
  std::vector<Row> rows;
};

class PlayTest : public testing::Test {
 public:
  explicit PlayTest(Scene played) : scene(std::move(played)) {}
  void TestBody() override { ExpectPlays(scene.given, scene.rows); }

 private:
  Scene scene;
};

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

using NamedTexts = std::map<std::string, std::string>;

std::string Substituted(std::string line, const NamedTexts& texts) {
  static const std::regex s_name("\\$[A-Za-z]+");
  for (std::smatch found; std::regex_search(line, found, s_name);) {
    if (!texts.contains(found.str())) throw std::runtime_error("no text " + found.str() + " for: " + line);
    line = found.prefix().str() + texts.at(found.str()) + found.suffix().str();
  }
  return line;
}

std::string Unescaped(std::string text) {
  for (const auto& [escape, character] :
       {std::pair("\\n", "\n"), {"\\t", "\t"}, {"\\r", "\r"}, {"\\v", "\v"}, {"\\s", " "}})
    for (std::size_t at = text.find(escape); at != std::string::npos; at = text.find(escape, at))
      text.replace(at, 2, character);
  return text;
}

std::vector<Scene> ReadScenes(const std::filesystem::path& path) {
  std::vector<Scene> scenes;
  NamedTexts texts;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '$' && line.find(" = ") != std::string::npos && line.find("->") == std::string::npos) {
      const std::size_t mark = line.find(" = ");
      texts[line.substr(0, mark)] = Substituted(line.substr(mark + 3), texts);
      continue;
    }
    line = Substituted(line, texts);
    if (line.starts_with("== ")) {
      scenes.push_back({path.stem(), line.substr(3), "", {}});
    } else if (line.starts_with("given ")) {
      scenes.back().given = Unescaped(line.substr(6));
    } else if (line[0] != ' ') {
      scenes.back().rows.push_back({line, ""});
    } else {
      scenes.back().rows.back().script += " " + Trimmed(line);
    }
  }
  for (Scene& scene : scenes) {
    for (Row& row : scene.rows) {
      const std::size_t arrow = row.script.find("->");
      row.outcome = Unescaped(Trimmed(row.script.substr(arrow + 2)));
      row.script = Unescaped(Trimmed(row.script.substr(0, arrow)));
    }
  }
  return scenes;
}

const bool s_registered = [] {
  for (const auto& entry : std::filesystem::directory_iterator(TOVIK_PLAYS_DIR))
    for (const Scene& scene : ReadScenes(entry.path()))
      testing::RegisterTest(("Play_" + scene.file).c_str(), scene.name.c_str(), nullptr, nullptr, __FILE__,
                            __LINE__, [scene]() -> PlayTest* { return new PlayTest(scene); });
  return true;
}();

}  // namespace
