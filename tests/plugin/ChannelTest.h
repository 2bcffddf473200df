#pragma once

#include <gtest/gtest.h>

#include <string>

#include "ErrorOf.h"
#include "FakeHost.h"
#include "SaciInterface.h"

// The command channel over a fake host, built as the device builds it; the calls of the building are
// forgotten.
struct ChannelTest : testing::Test {
  ChannelTest() { host.ForgetCalls(); }

  // The result of a command as text, or the error.
  template <typename Send>
  std::string ResultOf(Send&& send) {
    unsigned result = 0;
    const std::string error = ErrorOf([&] { result = send(); });
    return error == "ok" ? std::to_string(result) : error;
  }
  // Takes unread words away, and begins with this sequence number.
  void StartAt(unsigned sequence) {
    utility.ResetTarget(0);
    saci.ResetInterfaceState();
    for (unsigned i = 0; i < sequence; ++i) (void)saci.GenRespSeqNumber();
    host.ForgetCalls();
  }

  FakeHost host;
  IFlashProgrammerUtility2 utility = host.Utility();
  SaciInterface saci{&utility, 2048, 2048, 128};
};
