#include "host/probe/cmsisdap/UsbHidLink.h"

#include <fmt/format.h>
#include <hidapi/hidapi.h>

#include <cerrno>
#include <string_view>

#include "host/probe/ProbeError.h"

namespace host {

namespace {

constexpr std::size_t kLargestReport = 1024;

// Names of USB devices are plain ASCII where they concern us.
std::string Narrow(const wchar_t* text) {
  std::string narrow;
  for (; text != nullptr && *text != 0; ++text) narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
  return narrow;
}

[[noreturn]] void FailUnplugged() {
  throw ProbeError(ProbeError::Kind::Unplugged,
                   "the debug probe has been unplugged: plug it in and start again");
}

}  // namespace

struct UsbHidLink::Device {
  struct Close {
    void operator()(hid_device* open) const { hid_close(open); }
  };
  std::unique_ptr<hid_device, Close> handle;
};

std::vector<UsbHidLink::Found> UsbHidLink::Find() {
  std::vector<Found> found;
  hid_device_info* const all = hid_enumerate(0, 0);
  for (const hid_device_info* one = all; one != nullptr; one = one->next) {
    const std::string product = Narrow(one->product_string);
    if (product.find("CMSIS-DAP") != std::string::npos)
      found.push_back({one->path, Narrow(one->serial_number), product});
  }
  hid_free_enumeration(all);
  return found;
}

UsbHidLink::UsbHidLink(const Found& found) : device(std::make_unique<Device>()) {
  errno = 0;
  device->handle.reset(hid_open_path(found.path.c_str()));
  if (device->handle) return;
  if (errno == EACCES || errno == EPERM)
    throw ProbeError(ProbeError::Kind::NoPermission,
                     fmt::format("no permission to open the debug probe {} ({}): install the rule "
                                 "60-tovik-probes.rules in /etc/udev/rules.d and plug the probe in again",
                                 found.product, found.path));
  throw ProbeError(ProbeError::Kind::NoProbe,
                   fmt::format("the debug probe {} ({}) cannot be opened: close what else uses it",
                               found.product, found.path));
}

UsbHidLink::~UsbHidLink() = default;

void UsbHidLink::Send(std::span<const std::uint8_t> packet) {
  std::vector<std::uint8_t> report(1 + reportSize);  // the number of the report comes first: there is but one
  std::copy(packet.begin(), packet.end(), report.begin() + 1);
  if (hid_write(device->handle.get(), report.data(), report.size()) < 0) FailUnplugged();
}

std::optional<Packet> UsbHidLink::Receive(std::chrono::milliseconds timeout) {
  Packet answer(kLargestReport);
  const int count =
      hid_read_timeout(device->handle.get(), answer.data(), answer.size(), static_cast<int>(timeout.count()));
  if (count < 0) FailUnplugged();
  if (count == 0) return std::nullopt;
  answer.resize(static_cast<std::size_t>(count));
  return answer;
}

}  // namespace host
