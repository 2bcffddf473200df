#include "host/probe/OpenProbe.h"

#include <fmt/format.h>

#include <string_view>

#include "host/device/InputError.h"
#include "host/probe/AdiProbe.h"
#include "host/probe/cmsisdap/CmsisDap.h"
#include "host/probe/cmsisdap/TcpLink.h"
#include "host/probe/openocd/OpenOcd.h"
#include "host/probe/simulated/SimulatedProbe.h"

namespace host {

namespace {

constexpr std::uint32_t kUsualWireHz = 4'000'000;  // loose wires stand it

// "kind:rest" or "kind".
struct ProbeName {
  explicit ProbeName(std::string_view name)
      : kind(name.substr(0, name.find(':'))),
        isBare(kind.size() == name.size()),
        rest(isBare ? "" : name.substr(kind.size() + 1)) {}

  std::string_view kind;
  bool isBare;
  std::string_view rest;
};

// Of a probe in the network or of an OpenOCD.
TcpAddress AddressOf(const ProbeName& name) {
  if (name.kind == "tcp") return ParseTcpAddress(name.rest, kTcpProbePort);
  return name.isBare ? TcpAddress{"localhost", OpenOcd::kUsualPort}
                     : ParseTcpAddress(name.rest, OpenOcd::kUsualPort);
}

void RequireNoChipOptions(const ProbeOptions& options) {
  const SimulatedChipOptions& chip = options.chip;
  const char* const one = chip.file              ? "a chip file"
                          : !chip.faults.empty() ? "faults"
                          : chip.lifeCycle       ? "a life cycle"
                          : chip.inRealTime      ? "real time"
                                                 : nullptr;
  if (one != nullptr)
    throw InputError(fmt::format(
        "{} can be chosen for a simulated chip only, and the probe {} has a real one", one, options.name));
}

PacketOptions PacketOptionsOf(const ProbeOptions& options, std::uint32_t usualHz) {
  return {.wireHz = options.wireHz.value_or(usualHz), .trace = options.wireTrace};
}

[[noreturn]] void RefuseName(const std::string& name) {
  std::string text = fmt::format(
      "there is no probe \"{}\": sim[:hs|fs|hid], cmsis-dap[:SERIAL], tcp:HOST[:PORT] and "
      "openocd[:HOST[:PORT]] are known",
      name);
  for (const std::string& sentence : ProbesLeftOut()) text += "; " + sentence;
  throw InputError(text);
}

// What reaches the access ports of a real chip, by a name of a known kind.
std::unique_ptr<ApAccess> OpenAccess(const ProbeOptions& options, const AccessPorts& ports) {
  const ProbeName name(options.name);
  const PacketOptions packets = PacketOptionsOf(options, kUsualWireHz);
  if (name.kind == "cmsis-dap") return OverPackets(OpenUsbProbe(name.rest), packets, ports);
  if (name.kind == "tcp") return OverPackets(std::make_unique<TcpLink>(AddressOf(name)), packets, ports);
  if (options.wireTrace)
    throw InputError("OpenOCD lets nobody see its packets: there is no trace of the wire");
  return std::make_unique<OpenOcd>(AddressOf(name));
}

// With what it leaves out. A USB probe without its serial number may be any.
std::string FullName(const std::string& text) {
  const ProbeName name(text);
  if (name.kind != "tcp" && name.kind != "openocd") return text;
  TcpAddress address = AddressOf(name);
  if (address.host == "localhost" || address.host == "::1") address.host = "127.0.0.1";
  return fmt::format("{}:{}:{}", name.kind, address.host, address.port);
}

}  // namespace

bool IsSameProbe(const std::string& one, const std::string& other) {
  constexpr std::string_view kAnyUsb = "cmsis-dap";
  if (one == kAnyUsb || other == kAnyUsb) return one.starts_with(kAnyUsb) && other.starts_with(kAnyUsb);
  return FullName(one) == FullName(other);
}

std::unique_ptr<DebugProbe> OpenProbe(const ProbeOptions& options, const DeviceDescription& device) {
  const ProbeName name(options.name);
  const ReadAhead readAhead = options.readAhead ? ReadAhead::Yes : ReadAhead::No;
  if (name.kind == "sim")
    return std::make_unique<SimulatedProbe>(device, options.chip, name.isBare ? "hs" : name.rest, readAhead,
                                            PacketOptionsOf(options, kFastestWireHz));
  if (name.kind != "cmsis-dap" && name.kind != "tcp" && name.kind != "openocd") RefuseName(options.name);
  RequireNoChipOptions(options);
  return std::make_unique<AdiProbe>(OpenAccess(options, device.ports), device.ports, readAhead);
}

ListedProbe AskTcpProbe(const std::string& name) {
  const ProbeName parts(name);
  if (parts.kind != "tcp")
    throw InputError(fmt::format("\"{}\": a probe in the network is tcp:HOST or tcp:HOST:PORT", name));
  ListedProbe probe{
      .name = name, .product = "", .serial = "", .cable = "network", .firmware = "", .trouble = ""};
  Describe(std::make_unique<TcpLink>(AddressOf(parts)), probe);
  return probe;
}

}  // namespace host
