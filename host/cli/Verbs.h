#pragma once

#include "host/cli/Options.h"

namespace host::cli {

// Each adds its verb to the program: the options, the help, and `options.run` when the verb is chosen.
void AddLoad(CLI::App& program, Options& options);
void AddVerify(CLI::App& program, Options& options);
void AddDump(CLI::App& program, Options& options);
void AddInfo(CLI::App& program, Options& options);
void AddDevices(CLI::App& program, Options& options);
void AddProperties(CLI::App& program, Options& options);
void AddOperation(CLI::App& program, Options& options);
void AddScript(CLI::App& program, Options& options);
void AddErase(CLI::App& program, Options& options);
void AddBlankCheck(CLI::App& program, Options& options);
void AddHsm(CLI::App& program, Options& options);
void AddUnlock(CLI::App& program, Options& options);
void AddExplain(CLI::App& program, Options& options);

}  // namespace host::cli
