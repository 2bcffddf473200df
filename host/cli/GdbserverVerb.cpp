#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "host/cli/ExitCode.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/gdb/ChipTarget.h"
#include "host/gdb/Link.h"
#include "host/net/Server.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

struct GdbserverOptions {
  TargetOptions target;
  std::uint16_t port = 3333;
  bool once = false;
};

// A server is read while it runs, also through a pipe.
class ServerOutput final : public gdb::Terminal {
 public:
  explicit ServerOutput(Output& itsOutput) : output(itsOutput) {
    if (!output.IsJson()) bar = ProgressBar::For(stderr);
  }
  void Say(std::string_view text) override {
    output.Say(text);
    (void)std::fflush(stdout);
  }
  void Complain(std::string_view text) override { output.Complain(text); }
  void Explain(std::string_view text) override { output.Explain(text); }
  void Follow(const LoadEvent& event) override {
    if (bar) bar->Take(event);
    if (const auto* message = std::get_if<LoadMessage>(&event)) output.Show(*message);
    (void)std::fflush(stdout);
  }

 private:
  Output& output;
  std::optional<ProgressBar> bar;
};

// Lets the server look after its sockets while the plug-in works.
class Breath final : public HostCallObserver {
 public:
  explicit Breath(net::Server& itsServer) : server(itsServer) {}
  void Saw(const HostCall&, std::uint64_t) override { server.Breathe(); }

 private:
  net::Server& server;
};

ExitCode ExitCodeOfLast(const std::optional<LoadRecord>& load, const Session& session) {
  if (session.IsCancelled()) return kInterrupted;
  if (!load) return kDone;
  if (load->failure) return kFailed;
  return load->HasErrorMessages() || session.TraceLoss() ? kErrorsReported : kDone;
}

int Serve(const GdbserverOptions& options, Output& output) {
  FilesOf(options.target).RequireDistinct();
  Session session(Request(options.target, MissingChip::Make));
  session.RequireSavableChip();
  if (!options.target.trace.empty()) session.TraceTo(options.target.trace, kProgram);

  ServerOutput terminal(output);
  gdb::ChipTarget target(session, terminal);
  net::Server server(gdb::ServiceFor(target, terminal), options.port);
  Breath breath(server);
  session.services.AddObserver(breath);
  terminal.Say(fmt::format("Device    {} ({})\n", session.device.name, session.device.description));
  terminal.Say(TargetLine(options.target, session));
  const std::string listening = fmt::format("Listening on 127.0.0.1:{}\n", server.Port());
  output.IsJson() ? terminal.Explain(listening) : terminal.Say(listening);
  {
    const Interruptible interruptible(session);
    server.Run(options.once ? net::Server::Clients::One : net::Server::Clients::Many,
               [&] { return session.IsCancelled(); });
  }
  session.services.RemoveObserver(breath);
  target.Keep();
  if (session.IsCancelled()) terminal.Complain("interrupted");
  if (const auto loss = session.TraceLoss()) output.Complain(*loss);
  output.document["port"] = server.Port();
  output.document["last_load"] = target.LastLoad() ? ToJson(*target.LastLoad()) : Json(nullptr);
  const bool hasFailed = target.LastLoad() && target.LastLoad()->failure;
  return output.Finish("gdbserver", ExitCodeOfLast(target.LastLoad(), session),
                       hasFailed ? target.LastLoad()->failure->text : "");
}

}  // namespace

void AddGdbserver(CLI::App& program, Job& chosen) {
  AddVerb<GdbserverOptions>(
      program, chosen, "gdbserver",
      "Let GDB or LLDB load a chip through this plug-in: target extended-remote :3333",
      [](CLI::App& verb, GdbserverOptions& options) {
        AddTargetOptions(verb, options.target);
        verb.add_option("--port", options.port, "Where to listen, on this machine only; 0 takes a free port")
            ->type_name("N")
            ->capture_default_str();
        verb.add_flag("--once", options.once, "End when the first client has gone");
      },
      Serve);
}

}  // namespace host::cli
