#pragma once

#include <utility>

// Calls `undo`, which must not throw, when the scope is left in whatever way.
template <typename Undo>
class ScopeGuard {
 public:
  explicit ScopeGuard(Undo action) : undo(std::move(action)) {}
  ~ScopeGuard() { undo(); }
  ScopeGuard(const ScopeGuard&) = delete;
  ScopeGuard& operator=(const ScopeGuard&) = delete;

 private:
  Undo undo;
};
