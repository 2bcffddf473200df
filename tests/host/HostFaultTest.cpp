#include "host/plugin/HostFault.h"

#include <gtest/gtest.h>

#include "InputErrorOf.h"

namespace host {
namespace {

TEST(HostFaultTest, ReadsTheCallAndTheText) {
  const struct {
    const char* text;
    std::uint64_t call;
    const char* failure;
  } cases[] = {
      {"host:1", 1, "host call failed on request"},
      {"host:250=probe unplugged", 250, "probe unplugged"},
      {"host:3=", 3, ""},
      {"host:3=a=b", 3, "a=b"},
  };
  for (const auto& c : cases) {
    ASSERT_TRUE(IsHostFault(c.text)) << c.text;
    const HostFault fault = ParseHostFault(c.text);
    EXPECT_EQ(fault.call, c.call) << c.text;
    EXPECT_EQ(fault.text, c.failure) << c.text;
  }
}

TEST(HostFaultTest, RefusesWhatIsNeither) {
  for (const std::string text :
       {"host:", "host:0", "host:x", "host:1x", "host:-1", "host:=text", "host:18446744073709551616"})
    EXPECT_EQ(InputErrorOf([&] { (void)ParseHostFault(text); }),
              "fault \"" + text + "\": expected host:N or host:N=TEXT, N counting from 1");
  EXPECT_FALSE(IsHostFault("saci:14:lost"));
}

}  // namespace
}  // namespace host
