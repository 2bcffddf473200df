#pragma once

#include "host/load/Session.h"

namespace host::cli {

// SIGINT and SIGTERM cancel the session under way, so that the plug-in ends as after any failed host call, or
// are noted where somebody asks for them. A second one, or one that nobody waits for, ends the program at
// once with kInterrupted. SIGPIPE is ignored: a reader that is gone shows as an error of standard output.
// `json` says how to end at once.
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

// Work without a session, which asks now and then whether there was an interrupt.
class InterruptNote {
 public:
  InterruptNote();
  ~InterruptNote();
  InterruptNote(const InterruptNote&) = delete;
  InterruptNote& operator=(const InterruptNote&) = delete;

  [[nodiscard]] bool IsInterrupted() const;
};

}  // namespace host::cli
