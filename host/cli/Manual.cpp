#include "host/cli/Manual.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "host/cli/CommandTree.h"
#include "host/cli/ExitCode.h"
#include "host/cli/Target.h"

namespace host::cli {

namespace {

struct Entry {
  std::string name;
  std::string meaning;
};

const Entry s_exitCodes[] = {
    {std::to_string(kDone), "done"},
    {std::to_string(kFailed), "failed"},
    {std::to_string(kWrongInput), "wrong usage or input; no chip was touched"},
    {std::to_string(kErrorsReported), "done, but errors were reported"},
    {std::to_string(kDiffers),
     "the chip differs from the images, or is not blank; a plug-in breaks its contract"},
    {std::to_string(kInterrupted), "interrupted"},
};

constexpr const char* kEnvironment =
    "TOVIK_DEVICE, TOVIK_CHIP, TOVIK_PROBE, TOVIK_PLUGIN and TOVIK_PASSWORD stand for the options\n"
    "of these names, TOVIK_DEVICES for the folder of device descriptions, TOVIK_CONFIG for --config.\n";

constexpr const char* kDescription =
    "Programs, verifies and erases chips of the Tovik family through the flash-loader plug-in "
    "libFlashDeviceTovik.so, as a debugger does. Without --probe it works on a simulated chip, which --chip "
    "keeps in a file between runs. What can be known to be wrong is refused before a chip is touched. Each "
    "verb tells its options with --help.";

const Entry s_files[] = {
    {"../share/tovik/devices/",
     "The descriptions of devices and their settings, seen from the program's folder."},
    {"../lib/.../tovik/libFlashDeviceTovik.so", "The plug-in."},
    {"../share/doc/tovik-flash/",
     "More to read: devices and settings, the JSON documents, the trace, probes, GDB."},
};

const Entry s_examples[] = {
    {"tovik-flash load firmware.elf --device serin-s20 --chip board.chip",
     "Program a simulated chip and keep it in a file."},
    {"tovik-flash load firmware.hex --device serin-s20 --probe cmsis-dap",
     "Program a board behind a CMSIS-DAP probe at a USB port."},
    {"tovik-flash verify firmware.elf --chip board.chip", "Compare; the exit code is 4 if they differ."},
    {"tovik-flash load firmware.elf --chip board.chip --dry-run --set FlashPageToggle=1 --set "
     "FlashPages=0,40-47",
     "Show what a load of chosen sectors would change."},
    {"tovik-flash explain 135", "Say what a result code of the chip means and what to do."},
    {"tovik-flash explain --trace load.trace",
     "Tell what a load did that was recorded with --trace load.trace, and where its time went."},
};

// Text as roff shows it unchanged.
std::string Roff(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '\\': escaped += "\\e"; break;
      case '-': escaped += "\\-"; break;
      case '\'': escaped += "\\(aq"; break;
      case '`': escaped += "\\(ga"; break;
      case '^': escaped += "\\(ha"; break;
      case '~': escaped += "\\(ti"; break;
      default: escaped += c;
    }
  }
  return escaped.starts_with('.') ? "\\&" + escaped : escaped;
}

std::string Tagged(const std::string& roffTag, const std::string& text) {
  return fmt::format(".TP\n{}\n{}\n", roffTag, text);
}

std::string Section(const char* title, std::span<const Entry> entries) {
  std::string section = fmt::format(".SH {}\n", title);
  for (const Entry& entry : entries)
    section += Tagged("\\fB" + Roff(entry.name) + "\\fR", Roff(entry.meaning));
  return section;
}

std::string OptionEntry(const CLI::Option& option) {
  const bool hasValue = TakesValue(option);
  std::string tag = fmt::format("\\fB{}\\fR", Roff(option.get_name(option.get_positional(), true)));
  if (option.get_positional())
    tag = fmt::format("\\fI{}\\fR", Roff(option.get_type_name()));
  else if (hasValue)
    tag += fmt::format(" \\fI{}\\fR", Roff(option.get_type_name()));
  std::string text = option.get_description() + ".";
  if (hasValue && !option.get_default_str().empty()) text += " Default: " + option.get_default_str() + ".";
  if (!option.get_envname().empty()) text += " Environment: " + option.get_envname() + ".";
  return Tagged(tag, Roff(text));
}

// A verb that can be chosen, with its names from the program down: "hsm update".
struct Leaf {
  std::string name;
  const CLI::App* verb;
};

void CollectLeaves(const CLI::App& app, const std::string& before, std::vector<Leaf>& leaves) {
  for (const CLI::App* verb : VerbsOf(app)) {
    const std::string name = before + verb->get_name();
    if (VerbsOf(*verb).empty()) leaves.push_back({name, verb});
    CollectLeaves(*verb, name + " ", leaves);
  }
}

// Options that several verbs have, with the same meaning and default: told once. Those of most verbs are
// called the common ones.
class SharedOptions {
 public:
  explicit SharedOptions(const std::vector<Leaf>& leaves) : verbs(leaves.size()) {
    for (const Leaf& leaf : leaves)
      for (const CLI::Option* option : OptionsOf(*leaf.verb))
        if (++count[KeyOf(*option)] == 2 && !option->get_positional()) order.push_back(option);
  }

  [[nodiscard]] bool Has(const CLI::Option& option) const {
    return !option.get_positional() && count.at(KeyOf(option)) > 1;
  }
  [[nodiscard]] bool IsCommon(const CLI::Option& option) const {
    return Has(option) && count.at(KeyOf(option)) * 2 > verbs;
  }
  // Those that are common to most verbs, or the others.
  [[nodiscard]] std::vector<const CLI::Option*> All(bool common) const {
    std::vector<const CLI::Option*> options;
    for (const CLI::Option* option : order)
      if (IsCommon(*option) == common) options.push_back(option);
    return options;
  }

 private:
  using Key = std::pair<std::string, std::string>;
  static Key KeyOf(const CLI::Option& option) {
    return {option.get_name(), option.get_description() + option.get_default_str()};
  }

  std::size_t verbs;
  std::map<Key, std::size_t> count;
  std::vector<const CLI::Option*> order;
};

std::string EntriesOf(const std::vector<const CLI::Option*>& options) {
  std::string text;
  for (const CLI::Option* option : options) text += OptionEntry(*option);
  return text;
}

// "the common options" where the verb has them all.
std::string SharedText(const std::vector<const CLI::Option*>& options, const SharedOptions& shared) {
  const auto isCommon = [&](const CLI::Option* option) { return shared.IsCommon(*option); };
  const auto common = static_cast<std::size_t>(std::count_if(options.begin(), options.end(), isCommon));
  const bool hasAll = common == shared.All(true).size();
  std::string text = hasAll ? "the common options" : "";
  for (const CLI::Option* option : options)
    if (!hasAll || !isCommon(option))
      text += fmt::format("{}\\fB{}\\fR", text.empty() ? "" : ", ", Roff(option->get_name()));
  return text;
}

std::string VerbText(const Leaf& leaf, const SharedOptions& shared) {
  std::string arguments;
  std::vector<const CLI::Option*> own;
  std::vector<const CLI::Option*> others;
  for (const CLI::Option* option : OptionsOf(*leaf.verb)) {
    if (option->get_positional()) arguments += " \\fI" + Roff(option->get_type_name()) + "\\fR";
    (shared.Has(*option) ? others : own).push_back(option);
  }
  return fmt::format(".SS {}{}\n{}.\n{}.PP\nAlso: {}.\n", Roff(leaf.name), arguments,
                     Roff(leaf.verb->get_description()), EntriesOf(own), SharedText(others, shared));
}

}  // namespace

std::string HelpFooter() {
  std::string text = "Exit codes:\n";
  for (const Entry& code : s_exitCodes) text += fmt::format("  {:<5}{}\n", code.name, code.meaning);
  return text + "\nEnvironment: " + kEnvironment;
}

std::string ManualPage(const CLI::App& program, std::string_view date) {
  std::vector<Leaf> leaves;
  CollectLeaves(program, "", leaves);
  const SharedOptions shared(leaves);
  std::string page = fmt::format(".TH TOVIK\\-FLASH 1 {} \"{}\" \"User Commands\"\n", date, kProgram);
  page += ".SH NAME\ntovik\\-flash \\- program Serin and Corvel chips through a flash\\-loader plug\\-in\n";
  page += ".SH SYNOPSIS\n.B tovik\\-flash\n.I verb\n.RI [ argument ...]\n.RI [ option ...]\n";
  page += fmt::format(".SH DESCRIPTION\n{}\n.SH VERBS\n", Roff(kDescription));
  for (const Leaf& leaf : leaves) page += VerbText(leaf, shared);
  page += ".SH OPTIONS\n.SS Common options\n" + EntriesOf(shared.All(true));
  page += ".SS Options of several verbs\n" + EntriesOf(shared.All(false));
  page += ".SS Options of the program\n" + EntriesOf(OptionsOf(program));
  page += Section("EXIT STATUS", s_exitCodes);
  page += fmt::format(".SH ENVIRONMENT\n{}", Roff(kEnvironment));
  page += Section("FILES", s_files) + Section("EXAMPLES", s_examples);
  return page + ".SH SEE ALSO\n.BR gdb (1),\n.BR openocd (1)\n";
}

}  // namespace host::cli
