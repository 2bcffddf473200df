#pragma once

#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/probe/ChipPicture.h"
#include "host/report/Format.h"

namespace host {

// What each memory of a chip holds, in words: "blank", or how much and whether its CRC words are right. One
// line a memory that the device has, RAM aside.
std::vector<TitledText> DescribeContents(const DeviceDescription& device, const ChipPicture& picture);

// The word of CFGAP_DEVICESTATUS in words: life cycle, what the boot ROM is doing, whether debugging is open.
std::vector<TitledText> DescribeStatus(std::uint32_t status);

}  // namespace host
