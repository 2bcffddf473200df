#include "host/probe/UsbProbes.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "host/device/InputError.h"
#include "host/probe/ProbeError.h"
#include "host/probe/cmsisdap/CmsisDap.h"
#ifdef TOVIK_WITH_USB_BULK
#include "host/probe/cmsisdap/UsbBulkLink.h"
#endif
#ifdef TOVIK_WITH_USB_HID
#include "host/probe/cmsisdap/UsbHidLink.h"
#endif

namespace host {

namespace {

struct UsbProbe {
  std::string product;
  std::string serial;
  std::string cable;
  std::function<std::unique_ptr<PacketLink>()> open;
};

template <typename Link>
void AddAll(std::vector<UsbProbe>& probes, const char* cable) {
  for (const auto& found : Link::Find()) {
    // Many probes have both interfaces; the first one found, the bulk one, is the faster.
    const bool isKnown = std::any_of(probes.begin(), probes.end(), [&](const UsbProbe& one) {
      return one.cable != cable && one.serial == found.serial && one.product == found.product;
    });
    if (!isKnown)
      probes.push_back(
          {found.product, found.serial, cable, [found] { return std::make_unique<Link>(found); }});
  }
}

std::vector<UsbProbe> FindAll() {
  std::vector<UsbProbe> probes;
#ifdef TOVIK_WITH_USB_BULK
  AddAll<UsbBulkLink>(probes, "USB bulk, CMSIS-DAP 2");
#endif
#ifdef TOVIK_WITH_USB_HID
  AddAll<UsbHidLink>(probes, "USB HID, CMSIS-DAP 1");
#endif
  return probes;
}

std::string Names(const std::vector<UsbProbe>& probes) {
  std::string names;
  for (const UsbProbe& one : probes) names += (names.empty() ? "cmsis-dap:" : ", cmsis-dap:") + one.serial;
  return names;
}

}  // namespace

void Describe(std::unique_ptr<PacketLink> cable, ListedProbe& probe) {
  const CmsisDap asked(std::move(cable));
  probe.firmware = asked.Identity().firmware;
  probe.packetSize = asked.Identity().packetSize;
  probe.packetCount = asked.Identity().packetCount;
  if (probe.product.empty()) probe.product = asked.Identity().product;
  if (probe.serial.empty()) probe.serial = asked.Identity().serial;
}

std::vector<ListedProbe> ListProbes() {
  std::vector<ListedProbe> listed;
  for (const UsbProbe& one : FindAll()) {
    ListedProbe probe{.name = "cmsis-dap:" + one.serial,
                      .product = one.product,
                      .serial = one.serial,
                      .cable = one.cable,
                      .firmware = "",
                      .trouble = ""};
    try {
      Describe(one.open(), probe);
    } catch (const ProbeError& error) {
      probe.trouble = error.what();
    }
    listed.push_back(std::move(probe));
  }
  return listed;
}

std::vector<std::string> ProbesLeftOut() {
  std::vector<std::string> sentences;
#ifndef TOVIK_WITH_USB_BULK
  sentences.emplace_back("built without libusb: CMSIS-DAP probes with bulk endpoints are left out");
#endif
#ifndef TOVIK_WITH_USB_HID
  sentences.emplace_back("built without hidapi: CMSIS-DAP probes that are HID devices are left out");
#endif
  return sentences;
}

std::unique_ptr<PacketLink> OpenUsbProbe(std::string_view serial) {
  std::vector<UsbProbe> probes = FindAll();
  const std::string all = Names(probes);
  if (!serial.empty()) std::erase_if(probes, [&](const UsbProbe& one) { return one.serial != serial; });
  if (probes.size() > 1)
    throw InputError(fmt::format("several debug probes are plugged in, name one of them: {}", all));
  if (!probes.empty()) return probes.front().open();
  std::string text = serial.empty() ? "no CMSIS-DAP probe is plugged in"
                                    : fmt::format("there is no debug probe \"cmsis-dap:{}\"", serial);
  if (!all.empty()) text += ", but " + all;
  for (const std::string& sentence : ProbesLeftOut()) text += "; " + sentence;
  throw ProbeError(ProbeError::Kind::NoProbe, text);
}

}  // namespace host
