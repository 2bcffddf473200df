#include "RuneValue.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

C_RuneValue TextRecord(const char* text) {
  C_RuneValue record(0);
  record.type = C_RuneValue::kText;
  record.text = text;
  return record;
}

const C_RuneValue& RecordOf(const RuneValue& value) {
  return value;
}

TEST(RuneValue, EachPointsAtItsOwnText) {
  auto buffer = std::make_unique<std::string>("a text too long for a small buffer");
  auto source = std::make_unique<RuneValue>(TextRecord(buffer->c_str()));
  buffer.reset();
  EXPECT_STREQ(RecordOf(*source).text, "a text too long for a small buffer");

  const RuneValue copied(*source);
  RuneValue assigned(5);
  assigned = *source;
  std::vector<RuneValue> moved(1, *source);
  moved.reserve(moved.capacity() + 1);
  source.reset();
  for (const RuneValue& copy : {copied, assigned, moved.front()})
    EXPECT_STREQ(RecordOf(copy).text, "a text too long for a small buffer");
}

TEST(RuneValue, ANullTextStaysNullUntilItIsCopied) {
  const RuneValue fromRecord(TextRecord(nullptr));
  EXPECT_EQ(RecordOf(fromRecord).text, nullptr);
  const RuneValue copy(fromRecord);
  EXPECT_STREQ(RecordOf(copy).text, "");
}

TEST(RuneValue, AnIntegerAfterATextIsAnInteger) {
  RuneValue value(TextRecord("abc"));
  value = RuneValue(-7);
  EXPECT_TRUE(value.IsInteger());
  EXPECT_EQ(value.ToLongLong(), -7);
}

TEST(RuneValue, OtherTypesPassUnchanged) {
  C_RuneValue record(0x1234567890);
  record.type = 3;
  const RuneValue value = RuneValue(record);
  EXPECT_FALSE(value.IsInteger());
  EXPECT_EQ(RecordOf(value).type, 3U);
  EXPECT_EQ(RecordOf(value).integer, 0x1234567890);
}

TEST(RuneValueDeathTest, ATextReadAsANumberStopsTheProcess) {
  const RuneValue value(TextRecord("1"));
  EXPECT_DEATH((void)value.ToLongLong(), "include/RuneValue.*IsInteger\\(\\)");
}

}  // namespace
