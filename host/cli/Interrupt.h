#pragma once

#include <csignal>
#include <vector>

#include "host/load/Session.h"

namespace host::cli {

// SIGINT and SIGTERM cancel the sessions under way, so that their plug-ins end as after any failed host call,
// or are noted where somebody asks for them. A second one, or one that nobody waits for, ends the program at
// once with kInterrupted. SIGPIPE is ignored: a reader that is gone shows as an error of standard output.
// `json` says how to end at once.
void WatchSignals();
void EndWithJson(bool json);

// Lets an interrupt cancel these sessions for as long as this object lives, which is made and ends on the
// thread that takes the signals.
class Interruptible {
 public:
  explicit Interruptible(Session& session) : Interruptible(std::vector{&session}) {}
  explicit Interruptible(std::vector<Session*> itsSessions);
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  std::vector<Session*> sessions;
};

// Threads that are started while this object lives take no signals: those are left to their starter.
class SignalsLeftToStarter {
 public:
  SignalsLeftToStarter();
  ~SignalsLeftToStarter();
  SignalsLeftToStarter(const SignalsLeftToStarter&) = delete;
  SignalsLeftToStarter& operator=(const SignalsLeftToStarter&) = delete;

 private:
  sigset_t before;
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
