#pragma once

#include <string>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/plan/LoadPlan.h"
#include "simulator/ChipState.h"

namespace host {

// What a load of `plan` makes of a chip, by the plan and the settings alone: what the plug-in says or does
// has no part in it.
simulator::ChipState ChipAfterLoad(simulator::ChipState chip, const LoadPlan& plan,
                                   const DeviceDescription& device, const PropertyStore& settings);

// The same of a chip erase that may keep the sectors which the chip's CCFG marks.
enum class MarkedSectors { Erased, Kept };
simulator::ChipState ChipAfterErase(simulator::ChipState chip, const ChipFacts& facts, MarkedSectors marked);

// A chip that is to be loaded with `plan`: one that has been in use, with something in all of MAIN flash and
// a configuration, where the load erases; else with something wherever the load does not go. OTP and RAM are
// as `blank` has them.
simulator::ChipState ChipBeforeLoad(simulator::ChipState blank, const LoadPlan& plan, const ChipFacts& facts,
                                    const PropertyStore& settings);

// How a chip differs from what it should be, region by region: "MAIN holds 0x12 at 0x800 instead of 0x34, and
// 7 bytes more are wrong". Empty for equal ones.
std::string Difference(const simulator::ChipState& is, const simulator::ChipState& expected);

}  // namespace host
