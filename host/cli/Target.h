#pragma once

#include "host/cli/Files.h"
#include "host/cli/Options.h"
#include "host/load/Session.h"

namespace host::cli {

// The program and its version, as traces and --version name it.
inline constexpr const char* kProgram = "tovik-flash " TOVIK_VERSION;

// The description of the device that the options name, or else of the one that the chip file is of. Throws
// InputError.
DeviceDescription ReadDevice(const TargetOptions& options);

// What the options say of the simulated chip.
SimulatedChipOptions ChipOptions(const TargetOptions& options, MissingChip missing);

// What a session for these options is made of; reads what they name. Throws InputError.
SessionRequest Request(const TargetOptions& options, MissingChip missing);

// The files that the options name.
Files FilesOf(const TargetOptions& options);

// A line: the simulated chip with its file, or the name of a real probe.
std::string TargetLine(const TargetOptions& options, Session& session);

// "board.chip", "board.chip (new)", or that the chip is a new one which nobody keeps; nothing for a real one.
std::string ChipText(const TargetOptions& options, Session& session);
std::string ChipText(const TargetOptions& options, const ChipView& chip);

}  // namespace host::cli
