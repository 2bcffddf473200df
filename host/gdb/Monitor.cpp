#include "host/gdb/Monitor.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "host/device/InputError.h"
#include "host/device/Passwords.h"
#include "host/device/Settings.h"
#include "host/device/Text.h"
#include "host/plugin/PluginTexts.h"
#include "host/report/ChipContents.h"

namespace host::gdb {

namespace {

using Clock = std::chrono::steady_clock;

// A client gives up a command that is silent for two seconds.
class Heartbeat final : public HostCallObserver {
 public:
  Heartbeat(HostServices& hostServices, const Console& clientConsole)
      : services(hostServices), console(clientConsole) {
    services.AddObserver(*this);
  }
  ~Heartbeat() override { services.RemoveObserver(*this); }
  Heartbeat(const Heartbeat&) = delete;
  Heartbeat& operator=(const Heartbeat&) = delete;

  void Saw(const HostCall&, std::uint64_t) override {
    const auto now = Clock::now();
    if (now - last < std::chrono::seconds(1)) return;
    last = now;
    console(fmt::format("... {} s\n", std::chrono::duration_cast<std::chrono::seconds>(now - start).count()));
  }

 private:
  HostServices& services;
  const Console& console;
  Clock::time_point start = Clock::now();
  Clock::time_point last = start;
};

void SayLines(const MonitorContext& context, const std::vector<TitledText>& lines) {
  for (const auto& [title, text] : lines) context.console(fmt::format("{:<22}{}\n", title, text));
}

// Runs `action` with a device of the plug-in, whose messages go to client and terminal. Returns them.
std::vector<LoadMessage> WithDevice(const MonitorContext& context,
                                    const std::function<void(PluginDevice&)>& action) {
  std::vector<LoadMessage> messages;
  context.target.ForgetConnection();
  context.session.services.onMessage = [&](bool isError, const std::string& text) {
    messages.push_back({isError, text});
    context.terminal.Follow(messages.back());
    context.console(text + (text.ends_with('\n') ? "" : "\n"));
  };
  try {
    PluginDevice device = context.session.MakeDevice();
    (void)device.Initialize();
    action(device);
    context.session.services.onMessage = nullptr;
  } catch (...) {
    context.session.services.onMessage = nullptr;
    context.target.Keep();  // what happened to the chip has happened
    throw;
  }
  context.target.Keep();
  return messages;
}

void Help(const MonitorContext& context, std::string_view);

void Report(const MonitorContext& context, std::string_view) {
  context.console(context.target.Report());
}

void Info(const MonitorContext& context, std::string_view) {
  Session& session = context.session;
  SayLines(context, {{"Device", fmt::format("{} ({})", session.device.name, session.device.description)}});
  SayLines(context, DescribeStatus(session.ReadRegister("CFGAP_DEVICESTATUS")));
  (void)WithDevice(context, [](PluginDevice& device) { device.PerformOperation("ReadDeviceInfo"); });
  for (const FlashProperty& property : session.device.properties)
    if (const std::string value = session.settings.Get(property.name);
        property.type == PropertyType::Display && !value.empty())
      SayLines(context, {{property.name, value}});
  if (const ChipView* const view = session.View())
    SayLines(context, DescribeContents(session.device, view->Picture()));
}

void Erase(const MonitorContext& context, std::string_view) {
  (void)WithDevice(context, [](PluginDevice& device) { device.PerformOperation("Erase"); });
  context.console("MAIN, CCFG and SCFG are erased\n");
}

void BlankCheck(const MonitorContext& context, std::string_view) {
  const std::vector<LoadMessage> messages =
      WithDevice(context, [](PluginDevice& device) { device.PerformOperation("BlankCheck"); });
  const bool isBlank = std::any_of(messages.begin(), messages.end(),
                                   [](const LoadMessage& message) { return message.text == kFlashIsBlank; });
  if (!isBlank) throw std::runtime_error("the chip is not blank");
}

void Settings(const MonitorContext& context, std::string_view) {
  for (const FlashProperty& property : context.session.device.properties) {
    if (!property.IsSetting()) continue;
    const std::string value = context.session.settings.Get(property.name);
    const bool isHidden = property.type == PropertyType::Password && !value.empty();
    context.console(fmt::format("{}={}\n", property.name, isHidden ? "(set)" : value));
  }
}

void Set(const MonitorContext& context, std::string_view assignment) {
  PropertyStore changed = context.session.settings;
  ApplySetting(context.session.device, changed, assignment);
  context.session.settings = std::move(changed);
}

void Reset(const MonitorContext& context, std::string_view) {
  context.target.ForgetConnection();
  context.session.services.Utility().ResetTarget(0);  // by its pin
  context.console("the chip was reset by its pin\n");
}

// The plug-in reports a refused password and goes on: whether debugging is open, the chip says.
void Unlock(const MonitorContext& context, std::string_view) {
  RequirePasswordInItsFormat(context.session.settings);
  (void)WithDevice(context, [&](PluginDevice& device) {
    constexpr long long kLeaveCommandMode = 1;
    context.session.services.ConnectDebugPort();
    (void)device.RunScriptFunction("EnsureAuthentication", {kLeaveCommandMode});
  });
  if (!context.session.IsDebuggingOpen()) throw std::runtime_error("debugging stays closed");
  context.console("debugging is open\n");
}

void Verify(const MonitorContext& context, std::string_view) {
  context.console(context.target.Verify());
}

void IfDifferent(const MonitorContext& context, std::string_view choice) {
  if (choice != "on" && choice != "off") throw InputError("if-different is on or off");
  context.target.loadsOnlyDifferent = choice == "on";
}

struct Command {
  std::string_view name;
  std::string_view argument;  // empty: takes none
  std::string_view meaning;
  void (*run)(const MonitorContext& context, std::string_view argument);
};
constexpr Command s_commands[] = {
    {"help", "", "this list", Help},
    {"report", "", "what the last load did, and why it failed", Report},
    {"info", "", "what the chip is and what it holds; resets it", Info},
    {"erase", "", "erase the chip", Erase},
    {"blank-check", "", "whether MAIN flash and CCFG are blank", BlankCheck},
    {"settings", "", "the flash settings", Settings},
    {"set", "NAME=VALUE", "change a flash setting, for the loads to come", Set},
    {"reset", "", "reset the chip by its pin", Reset},
    {"unlock", "", "open the chip for debugging, with the password that is set", Unlock},
    {"verify", "", "compare the chip with what was loaded last", Verify},
    {"if-different", "on|off", "load nothing that is on the chip already", IfDifferent},
};

void Help(const MonitorContext& context, std::string_view) {
  for (const Command& command : s_commands)
    context.console(fmt::format("monitor {:<24}{}\n", fmt::format("{} {}", command.name, command.argument),
                                command.meaning));
}

std::string_view Trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

const Command& FindCommand(std::string_view name) {
  std::vector<std::string> names;
  for (const Command& command : s_commands) {
    if (command.name == name) return command;
    names.emplace_back(command.name);
  }
  const std::vector<std::string> nearest = NearestNames(name, names, 1);
  throw InputError(fmt::format(
      "there is no monitor command \"{}\"{}", name,
      nearest.empty() ? ": monitor help lists them" : fmt::format("; do you mean \"{}\"?", nearest.front())));
}

}  // namespace

void RunMonitor(std::string_view line, const MonitorContext& context) {
  const std::string_view trimmed = Trimmed(line);
  const std::size_t space = std::min(trimmed.find(' '), trimmed.size());
  const std::string_view argument = Trimmed(trimmed.substr(space));
  const Command& command = FindCommand(trimmed.empty() ? "help" : trimmed.substr(0, space));
  if (command.argument.empty() != argument.empty())
    throw InputError(command.argument.empty() ? fmt::format("monitor {} takes no argument", command.name)
                                              : fmt::format("monitor {} {}: the argument is missing",
                                                            command.name, command.argument));
  const Heartbeat heartbeat(context.session.services, context.console);
  command.run(context, argument);
}

}  // namespace host::gdb
