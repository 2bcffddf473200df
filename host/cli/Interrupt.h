#pragma once

#include "host/load/Session.h"

namespace host::cli {

// SIGINT and SIGTERM cancel the session under way, so that the plug-in ends as after any failed host call; a
// second one, or one without a session, ends the program at once with kInterrupted. SIGPIPE is ignored: a
// reader that is gone shows as an error of standard output. `json` says how to end at once.
void WatchSignals();
void EndWithJson(bool json);

// Lets an interrupt cancel `session` for as long as this object lives.
class Interruptible {
 public:
  explicit Interruptible(Session& session);
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;
};

}  // namespace host::cli
