#include "host/cli/Interrupt.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string_view>
#include <utility>

#include "host/cli/ExitCode.h"

namespace host::cli {

namespace {

constexpr std::string_view kDocument =
    "{\"schema\": 1, \"verb\": null, \"exit_code\": 130, \"error\": \"interrupted\"}\n";

std::atomic<const std::vector<Session*>*> s_sessions = nullptr;
std::atomic<bool> s_json = false;
std::atomic<bool> s_isNoteWanted = false;
std::atomic<bool> s_isInterrupted = false;
static_assert(decltype(s_sessions)::is_always_lock_free, "used in a signal handler");

extern "C" void TakeSignal(int) {
  if (const std::vector<Session*>* const sessions = s_sessions.exchange(nullptr)) {
    for (Session* const session : *sessions) session->Cancel();
    return;
  }
  if (s_isNoteWanted.exchange(false)) {
    s_isInterrupted = true;
    return;
  }
  if (s_json) (void)!write(STDOUT_FILENO, kDocument.data(), kDocument.size());
  _exit(kInterrupted);
}

}  // namespace

void WatchSignals() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  struct sigaction action = {};
  action.sa_handler = TakeSignal;
  action.sa_flags = SA_RESTART;  // writes go on: the cancelled host call ends the load
  (void)sigaction(SIGINT, &action, nullptr);
  (void)sigaction(SIGTERM, &action, nullptr);
}

void EndWithJson(bool json) {
  s_json = json;
}

Interruptible::Interruptible(std::vector<Session*> itsSessions) : sessions(std::move(itsSessions)) {
  s_sessions = &sessions;
}

Interruptible::~Interruptible() {
  s_sessions = nullptr;
}

SignalsLeftToStarter::SignalsLeftToStarter() : before() {
  sigset_t taken;
  (void)sigemptyset(&taken);
  (void)sigaddset(&taken, SIGINT);
  (void)sigaddset(&taken, SIGTERM);
  (void)pthread_sigmask(SIG_BLOCK, &taken, &before);
}

SignalsLeftToStarter::~SignalsLeftToStarter() {
  (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

InterruptNote::InterruptNote() {
  s_isInterrupted = false;
  s_isNoteWanted = true;
}

InterruptNote::~InterruptNote() {
  s_isNoteWanted = false;
}

bool InterruptNote::IsInterrupted() const {
  return s_isInterrupted;
}

}  // namespace host::cli
