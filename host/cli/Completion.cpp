#include "host/cli/Completion.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "host/cli/CommandTree.h"
#include "host/cli/Locations.h"
#include "host/cli/Target.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

struct Candidate {
  std::string text;
  std::string meaning;
};

std::string EnvironmentOr(const char* name, std::string otherwise) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : std::move(otherwise);
}

// What the words before the last one say about it.
struct Typed {
  explicit Typed(const CLI::App& program) : app(program), verb(&program) {
    target.device = EnvironmentOr("TOVIK_DEVICE", "");
    target.chip = EnvironmentOr("TOVIK_CHIP", "");
  }

  void Take(const std::string& word) {
    if (open != nullptr) return TakeValue(word);
    const std::size_t equals = word.find('=');
    if (const CLI::Option* option = FindOption(word.substr(0, equals))) {
      if (TakesValue(*option)) open = option;
      if (equals != std::string::npos) TakeValue(word.substr(equals + 1));
      return;
    }
    for (const CLI::App* inner : VerbsOf(*verb))
      if (inner->get_name() == word) verb = inner;
  }

  [[nodiscard]] const CLI::Option* FindOption(const std::string& name) const {
    if (!name.starts_with('-')) return nullptr;
    const CLI::Option* const option = verb->get_option_no_throw(name);
    return option != nullptr ? option : app.get_option_no_throw(name);
  }

  void TakeValue(const std::string& value) {
    if (open != nullptr && open->get_name() == "--device") target.device = value;
    if (open != nullptr && open->get_name() == "--chip") target.chip = value;
    open = nullptr;
  }

  const CLI::App& app;
  const CLI::App* verb;               // the innermost one
  const CLI::Option* open = nullptr;  // whose value comes next
  TargetOptions target;
};

std::vector<Candidate> DeviceCandidates() {
  std::vector<Candidate> devices;
  for (const std::filesystem::path& file : ListDeviceFiles(DevicesFolder()))
    devices.push_back({file.stem().string(), ReadDeviceDescription(file).description});
  return devices;
}

// The settings' names; of one that is there already, what may stand behind its "=".
std::vector<Candidate> SettingCandidates(const TargetOptions& target, const std::string& word) {
  std::vector<Candidate> settings;
  for (const FlashProperty& property : ReadDevice(target).properties) {
    if (!property.IsSetting()) continue;
    if (!word.starts_with(property.name + "="))
      settings.push_back({property.name + "=", property.meaning});
    else
      for (const std::string& choice : property.choices)
        settings.push_back({property.name + "=" + choice, ""});
  }
  return settings;
}

std::vector<Candidate> ValueCandidates(const Typed& typed, const std::string& word) {
  if (typed.open->get_name() == "--device") return DeviceCandidates();
  if (typed.open->get_name() == "--set") return SettingCandidates(typed.target, word);
  return {};
}

std::vector<Candidate> OptionCandidates(const Typed& typed) {
  std::vector<Candidate> candidates;
  for (const CLI::Option* option : OptionsOf(*typed.verb))
    if (!option->get_lnames().empty())
      candidates.push_back({"--" + option->get_lnames().front(), option->get_description()});
  return candidates;
}

std::vector<Candidate> VerbCandidates(const CLI::App& app) {
  std::vector<Candidate> candidates;
  for (const CLI::App* verb : VerbsOf(app)) candidates.push_back({verb->get_name(), verb->get_description()});
  return candidates;
}

std::vector<Candidate> Candidates(Typed& typed, const std::string& word) {
  if (typed.open != nullptr) return ValueCandidates(typed, word);
  const std::size_t equals = word.find('=');
  if (!word.starts_with('-')) return VerbCandidates(*typed.verb);
  if (equals == std::string::npos) return OptionCandidates(typed);

  const std::string option = word.substr(0, equals + 1);
  typed.Take(word.substr(0, equals));
  if (typed.open == nullptr) return {};
  std::vector<Candidate> candidates = ValueCandidates(typed, word.substr(equals + 1));
  for (Candidate& candidate : candidates) candidate.text.insert(0, option);
  return candidates;
}

}  // namespace

std::string Completions(const CLI::App& program, std::span<const std::string> words) {
  const std::string last = words.empty() ? "" : words.back();
  Typed typed(program);
  for (std::size_t i = 0; i + 1 < words.size(); ++i) typed.Take(words[i]);
  std::string lines;
  try {
    for (const Candidate& candidate : Candidates(typed, last))
      if (candidate.text.starts_with(last))
        lines += fmt::format("{}\t{}\n", candidate.text, candidate.meaning);
  } catch (const InputError&) {
    // No device yet, or none that can be read: the command itself will say so.
  }
  return lines;
}

}  // namespace host::cli
