#pragma once

#include "host/cli/Options.h"

namespace host::cli {

// Each adds its verb to the program: the options, the help, and the job that `chosen` gets when the verb is
// chosen.
void AddLoad(CLI::App& program, Job& chosen);
void AddVerify(CLI::App& program, Job& chosen);
void AddErase(CLI::App& program, Job& chosen);
void AddBlankCheck(CLI::App& program, Job& chosen);
void AddDump(CLI::App& program, Job& chosen);
void AddInfo(CLI::App& program, Job& chosen);
void AddUnlock(CLI::App& program, Job& chosen);
void AddGdbserver(CLI::App& program, Job& chosen);
void AddServe(CLI::App& program, Job& chosen);
void AddProbes(CLI::App& program, Job& chosen);
void AddHsm(CLI::App& program, Job& chosen);
void AddOperation(CLI::App& program, Job& chosen);
void AddScript(CLI::App& program, Job& chosen);
void AddCheckPlugin(CLI::App& program, Job& chosen);
void AddDevices(CLI::App& program, Job& chosen);
void AddProperties(CLI::App& program, Job& chosen);
void AddExplain(CLI::App& program, Job& chosen);

}  // namespace host::cli
