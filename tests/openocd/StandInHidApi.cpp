// What OpenOCD calls of libhidapi, with a simulated probe and its chip behind it: preloaded, it puts them
// under an unmodified OpenOCD. The chip, a Serin S20, comes from the file TOVIK_CHIP_FILE and goes back there
// when the probe is closed; TOVIK_FAULT is a fault asked for, or empty. Names and layout are those of the
// library's documented interface.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <span>

#include "host/device/DeviceDescription.h"
#include "host/probe/simulated/SimulatedBoard.h"
#include "simulator/probe/ProbeTransport.h"

extern "C" struct hid_device_info {
  char* path;
  unsigned short vendor_id;
  unsigned short product_id;
  wchar_t* serial_number;
  unsigned short release_number = 0;
  wchar_t* manufacturer_string = nullptr;
  wchar_t* product_string;
  unsigned short usage_page = 0;
  unsigned short usage = 0;
  int interface_number = -1;
  hid_device_info* next = nullptr;
};

namespace {

constexpr int kFailed = -1;

host::SimulatedChipOptions Options() {
  host::SimulatedChipOptions options{.file = std::getenv("TOVIK_CHIP_FILE")};
  if (const char* const fault = std::getenv("TOVIK_FAULT"); fault != nullptr && *fault != '\0')
    options.faults.emplace_back(fault);
  return options;
}

// OpenOCD is C and knows no exceptions.
template <typename Result, typename Call>
Result Guarded(Result failed, Call&& call) {
  try {
    return call();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "simulated probe: %s\n", error.what());
    return failed;
  }
}

}  // namespace

// An open probe, and the chip at it. The modelled time goes on while nobody asks the probe for anything.
struct hid_device_ {
  host::SimulatedBoard board{host::ReadDeviceDescription(TOVIK_DEVICE_FILE), Options()};
  simulator::ProbeTransport probe{board.Target(), *simulator::FindProbeSpeed("hid")};
  std::chrono::steady_clock::time_point restsSince = std::chrono::steady_clock::now();

  void Rest() {
    const auto now = std::chrono::steady_clock::now();
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(now - restsSince);
    probe.Sleep(static_cast<std::uint32_t>(rest.count()));
    restsSince += rest;
  }
};

extern "C" {
#pragma GCC visibility push(default)

int hid_init() {
  return 0;
}

int hid_exit() {
  return 0;
}

hid_device_info* hid_enumerate(unsigned short, unsigned short) {
  static char path[] = "simulated";
  static wchar_t serial[] = L"SIM0001";
  static wchar_t product[] = L"Tovik simulated CMSIS-DAP";
  // The numbers are those set aside for private tests: OpenOCD takes zeros for no device.
  static hid_device_info only = {
      .path = path, .vendor_id = 0x1209, .product_id = 1, .serial_number = serial, .product_string = product};
  return &only;
}

void hid_free_enumeration(hid_device_info*) {}

hid_device_* hid_open_path(const char*) {
  return Guarded<hid_device_*>(nullptr, [] { return new hid_device_; });
}

hid_device_* hid_open(unsigned short, unsigned short, const wchar_t*) {
  return hid_open_path(nullptr);
}

// The first byte is the report's number, which this probe has not.
int hid_write(hid_device_* device, const unsigned char* data, std::size_t length) {
  return Guarded(kFailed, [&] {
    device->Rest();
    device->probe.Send(std::span(data, length).subspan(1));
    return static_cast<int>(length);
  });
}

int hid_read_timeout(hid_device_* device, unsigned char* data, std::size_t length, int wait) {
  return Guarded(kFailed, [&] {
    const auto answer = device->probe.Receive(static_cast<unsigned>(wait) * simulator::kMillisecond);
    if (!answer) return 0;
    const std::size_t count = std::min(length, answer->size());
    std::copy_n(answer->begin(), count, data);
    return static_cast<int>(count);
  });
}

const wchar_t* hid_error(hid_device_*) {
  return L"said above";
}

void hid_close(hid_device_* device) {
  const std::unique_ptr<hid_device_> closed(device);
  Guarded(kFailed, [&] {
    device->board.Save();
    return 0;
  });
}

#pragma GCC visibility pop
}  // extern "C"
