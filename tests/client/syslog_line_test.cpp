// The line of RFC 5424 for an event.
#include <gmock/gmock.h>

#include "node/event_outlets.h"

namespace {

using lumd::told_event;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

told_event told(const std::string &text) {
  told_event one;
  one.of.kind = "port-state";
  one.of.how_bad = lumd::severity::critical;
  one.of.port = "west";
  one.of.number = 7;
  one.of.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1234567));
  one.is_many = false;
  one.text = text;
  one.node = "node7";
  return one;
}

std::string line_of(const told_event &one) {
  return lumd::syslog_line(3, one, lumd::facts_of(one), "shelf");
}

TEST(SyslogLine, SaysWhenWhereAndWhat) {
  const std::string line = line_of(told("failing"));
  EXPECT_THAT(line, StartsWith("<27>1 1970-01-01T00:20:34.567Z shelf lumd "));
  EXPECT_THAT(line, EndsWith(" port-state [lum@32473 node=\"node7\" event=\"port-state\" "
                             "severity=\"critical\" number=\"7\" port=\"west\"] failing"));
}

TEST(SyslogLine, OfManyPortsNamesNone) {
  told_event many = told("11 ports");
  many.is_many = true;
  EXPECT_THAT(line_of(many), EndsWith(" severity=\"critical\"] 11 ports"));
}

TEST(SyslogLine, NoValueEndsItsQuotes) {
  told_event one = told("text");
  one.node = "a\"b]c\\d";
  EXPECT_THAT(line_of(one), HasSubstr(R"( node="a\"b\]c\\d" )"));
}

TEST(SyslogLine, OnlyWholeCharactersThatSteerNothing) {
  // A line's end, an escape, a high control, a surrogate, an overlong slash, a byte alone, an end
  // that is missing.
  const std::string line = line_of(told("\xC3\xBC\n\x1B\xC2\x9B\xED\xA0\x80\xC0\xAF\xFF\xE2\x82"));
  EXPECT_THAT(line, EndsWith("] \xC3\xBC????????????"));
}

TEST(SyslogLine, ALongTextIsCutBetweenCharacters) {
  std::string text;
  for (int i = 0; i < 2000; ++i) text += "\xC3\xBC";
  for (const char *front : {"", "x"}) {
    const std::string line = line_of(told(front + text));
    EXPECT_LE(line.size(), lumd::most_syslog_bytes);
    EXPECT_GE(line.size(), lumd::most_syslog_bytes - 1);
    EXPECT_THAT(line, EndsWith("\xC3\xBC"));
  }
}

TEST(SyslogLine, AHostWithoutANameIsADash) {
  const told_event one = told("text");
  EXPECT_THAT(lumd::syslog_line(3, one, {}, ""), HasSubstr("Z - lumd "));
}

}  // namespace
