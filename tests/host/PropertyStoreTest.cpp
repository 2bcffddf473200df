#include "host/device/PropertyStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct NearestTest : testing::Test {
  PropertyStore store{PropertyStore::Values{{"DebugPassword", ""},
                                            {"DebugPasswordHex", ""},
                                            {"FlashPages", ""},
                                            {"FlashPageToggle", "0"},
                                            {"OtpBase", "0"}}};
};

TEST_F(NearestTest, NamesTheBestFirstAndNoMoreThanAsked) {
  EXPECT_THAT(store.Nearest("FlashPage", 1), ElementsAre("FlashPageToggle"));
  EXPECT_THAT(store.Nearest("flashpagse", 1), ElementsAre("FlashPages"));
  EXPECT_THAT(store.Nearest("password", 5), ElementsAre("DebugPassword", "DebugPasswordHex"));
}

TEST_F(NearestTest, NamesNothingThatIsFarOff) {
  EXPECT_THAT(store.Nearest("zzzz", 3), IsEmpty());
}

TEST(PropertyStoreTest, SettingReplacesAndGettingFallsBack) {
  PropertyStore store;
  EXPECT_EQ(store.Find("A"), nullptr);
  EXPECT_EQ(store.Get("A", "none"), "none");
  store.Set("A", "1");
  store.Set("A", "");
  EXPECT_EQ(store.Get("A", "none"), "");  // an empty value is a value
}

}  // namespace
}  // namespace host
