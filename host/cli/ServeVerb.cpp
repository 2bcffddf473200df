#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/net/Server.h"
#include "host/probe/cmsisdap/TcpFrames.h"
#include "host/probe/simulated/ServedProbe.h"

namespace host::cli {

namespace {

struct ServeOptions {
  TargetOptions target;
  std::uint16_t port = kTcpProbePort;
  bool once = false;
};

// A server is read while it runs, also through a pipe.
void SayNow(Output& output, std::string_view text) {
  output.Say(text);
  (void)std::fflush(stdout);
}

void RequireNoHostFaults(const TargetOptions& options) {
  for (const std::string& fault : options.faults)
    if (IsHostFault(fault))
      throw InputError(fmt::format("--fault {}: it belongs to the client, where the plug-in is", fault));
}

// What a client has done to the chip is kept when it has gone, and again in the end.
void KeepNow(ChipView& chip, Output& output) {
  try {
    chip.Save();
  } catch (const std::exception& error) {
    output.Complain(error.what());
  }
}

int ServeProbe(const ServeOptions& options, Output& output) {
  const TargetOptions& target = options.target;
  RequireNoHostFaults(target);
  FilesOf(target).RequireDistinct();
  const DeviceDescription device = ReadDevice(target);
  ServedProbe probe(device, ChipOptions(target, MissingChip::Make), target.probe);
  probe.Chip().RequireSavable();
  unsigned clients = 0;
  const auto say = [&](std::string_view text) { SayNow(output, text); };
  net::Server server(probe.Offer({.say = say,
                                  .complain = [&](std::string_view text) { output.Complain(text); },
                                  .clientHasGone =
                                      [&] {
                                        ++clients;
                                        KeepNow(probe.Chip(), output);
                                        if (!target.chip.empty())
                                          say(fmt::format("The chip is kept in {}\n", target.chip));
                                      }}),
                     options.port);

  say(fmt::format("Device    {} ({})\n", device.name, device.description));
  say(fmt::format("Chip      {}\n", ChipText(target, probe.Chip())));
  say(fmt::format("Probe     {}, for --probe tcp:127.0.0.1:{}\n", target.probe, server.Port()));
  const std::string listening = fmt::format("Listening on 127.0.0.1:{}\n", server.Port());
  output.IsJson() ? output.Explain(listening) : say(listening);
  const InterruptNote interrupt;
  server.Run(options.once ? net::Server::Clients::One : net::Server::Clients::Many,
             [&] { return interrupt.IsInterrupted(); });
  probe.Chip().Save();
  if (interrupt.IsInterrupted()) output.Complain("interrupted");
  output.document["port"] = server.Port();
  output.document["clients"] = clients;
  return output.Finish("serve", interrupt.IsInterrupted() ? kInterrupted : kDone);
}

}  // namespace

void AddServe(CLI::App& program, Job& chosen) {
  AddVerb<ServeOptions>(
      program, chosen, "serve",
      "Offer the simulated chip behind a probe in the network: --probe tcp:127.0.0.1",
      [](CLI::App& verb, ServeOptions& options) {
        AddDeviceOption(verb, options.target);
        AddChipOptions(verb, options.target);
        verb.add_option("--probe", options.target.probe,
                        "The kind of probe: high-speed (sim:hs, the default), full-speed (sim:fs), "
                        "full-speed HID (sim:hid)")
            ->type_name("PROBE");
        verb.add_option("--port", options.port, "Where to listen, on this machine only; 0 takes a free port")
            ->type_name("N")
            ->capture_default_str();
        verb.add_flag("--once", options.once, "End when the first client has gone");
        AddJsonOption(verb);
      },
      ServeProbe);
}

}  // namespace host::cli
