#pragma once

#include "host/cli/LoadVerb.h"

namespace host::cli {

// Loads, and whenever an image has been written anew loads what is not on the chip already, until an
// interrupt ends the program. What goes wrong after the first load is told, and waited on. Throws InputError
// as RunLoad.
int LoadWatched(const LoadOptions& load, Output& output);

}  // namespace host::cli
