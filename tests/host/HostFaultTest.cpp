#include "host/plugin/HostFault.h"

#include <gtest/gtest.h>

#include "InputErrorOf.h"

namespace host {
namespace {

TEST(HostFaultTest, ReadsTheCallAndTheText) {
  const std::tuple<const char*, std::uint64_t, const char*> cases[] = {
      {"host:1", 1, "host call failed on request"},
      {"host:250=probe unplugged", 250, "probe unplugged"},
      {"host:3=", 3, ""},
      {"host:3=a=b", 3, "a=b"}};
  for (const auto& [text, call, failure] : cases) {
    ASSERT_TRUE(IsHostFault(text)) << text;
    EXPECT_EQ(ParseHostFault(text).call, call) << text;
    EXPECT_EQ(ParseHostFault(text).text, failure) << text;
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
