// The live view and its keys, in terminals of any size, without one.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>

#include "commands/watch_view.h"
#include "shelf_answers.h"
#include "terminal/glyphs.h"
#include "terminal/keys.h"

namespace lumctl {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::vector<key> pressed(const std::string &bytes) {
  key_reader reader;
  return reader.take(bytes);
}

TEST(Keys, AreReadWhole) {
  EXPECT_EQ(pressed("\x1b[A").at(0).kind, key_kind::up);
  EXPECT_EQ(pressed("\x1bOB").at(0).kind, key_kind::down);
  EXPECT_EQ(pressed("\x1b[6~").at(0).kind, key_kind::page_down);
  EXPECT_EQ(pressed("\x1b[1;5D").at(0).kind, key_kind::other);
  EXPECT_EQ(pressed("\r").at(0).kind, key_kind::enter);
  EXPECT_EQ(pressed("\x7f").at(0).kind, key_kind::backspace);
  EXPECT_EQ(pressed("q\xe5\x85\x89").at(1).text, "\xe5\x85\x89");
}

TEST(Keys, ComeInParts) {
  key_reader reader;
  EXPECT_THAT(reader.take("\x1b"), IsEmpty());
  EXPECT_TRUE(reader.is_waiting());
  EXPECT_THAT(reader.take("["), IsEmpty());
  EXPECT_EQ(reader.take("B").at(0).kind, key_kind::down);
  EXPECT_THAT(reader.take("\x1b"), IsEmpty());
  EXPECT_EQ(reader.take_rest().at(0).kind, key_kind::escape) << "when nothing follows";
  EXPECT_FALSE(reader.is_waiting());
}

TEST(Keys, TakeAnyBytes) {
  key_reader reader;
  for (unsigned byte = 0; byte < 256; ++byte) {
    reader.take(std::string(3, static_cast<char>(byte)));
    reader.take_rest();
    EXPECT_FALSE(reader.is_waiting()) << byte;
  }
}

class Watch : public testing::Test {
 protected:
  static port_news news_of(const json &answer) {
    const json polling = {{"cycles", 1}, {"last", nullptr}, {"running", false}, {"halt", nullptr}};
    return {{outcome::done, std::make_shared<const json>(polling), {}},
            {outcome::done, std::make_shared<const json>(answer), {}}};
  }

  void press(const std::string &bytes) {
    key_reader reader;
    for (const key &one : reader.take(bytes)) going_on_ = view_.press(one);
    for (const key &one : reader.take_rest()) going_on_ = view_.press(one);
  }

  // What is drawn, checked to fit.
  std::string drawn(const room &available = {60, 20}) {
    std::string text;
    for (const std::string &line : view_.lines(available)) {
      EXPECT_THAT(line, FitsInto(available.columns));
      text += line + "\n";
    }
    EXPECT_LE(lines_of(text).size(), available.rows);
    return text;
  }

  watch_view view_{{}, {}, {}, true};
  bool going_on_ = true;
};

TEST_F(Watch, FitsIntoAnyTerminal) {
  view_.take(news_of(shelf_of(48)));
  for (const room available :
       {room{60, 24}, room{120, 50}, room{20, 10}, room{10, 3}, room{200, 400}}) {
    drawn(available);
  }
  EXPECT_THAT(drawn(), HasSubstr("q quit"));
}

TEST_F(Watch, ScrollsToEachOfItsLines) {
  view_.take(news_of(shelf_of(48)));
  EXPECT_THAT(drawn(), AllOf(HasSubstr("0/1/0/1 "), Not(HasSubstr("0/1/0/48 "))));
  press("\x1b[B");
  EXPECT_THAT(drawn(), AllOf(Not(HasSubstr("0/1/0/1 ")), HasSubstr("lines 2-")));
  press("\x1b[F");
  EXPECT_THAT(drawn(), AllOf(HasSubstr("0/1/0/48 "), HasSubstr("PORT"))) << "the titles stay";
  press("\x1b[A");
  press("\x1b[H");
  EXPECT_THAT(drawn(), HasSubstr("0/1/0/1 "));
  press("\x1b[A");
  EXPECT_THAT(drawn(), HasSubstr("lines 1-"));
  for (int i = 0; i < 20; ++i) press("\x1b[6~"), drawn();
  EXPECT_THAT(drawn(), HasSubstr("not shown at 60"));
}

TEST_F(Watch, FiltersAsItIsTyped) {
  view_.take(news_of(shelf_of(48)));
  press("/0/4x");
  EXPECT_THAT(drawn(), HasSubstr("0 of 48 ports"));
  press("\x7f");
  EXPECT_THAT(drawn(), AllOf(HasSubstr("10 of 48 ports"), HasSubstr("filter: 0/4_")));
  press("\r");
  EXPECT_THAT(drawn(), AllOf(HasSubstr("filter \"0/4\""), HasSubstr("q quit")));
  press("/q");
  EXPECT_TRUE(going_on_) << "a letter of the filter";
  press("\x1b");
  EXPECT_THAT(drawn(), HasSubstr("10 of 48 ports"));
  press("\x1b");
  EXPECT_THAT(drawn(), HasSubstr("48 ports, "));
}

TEST_F(Watch, SortsAndTurnsAround) {
  json shelf = shelf_of(48);
  shelf["ports"][40]["state"] = "failing";
  view_.take(news_of(shelf));
  press("s");
  EXPECT_THAT(drawn(), AllOf(HasSubstr("sorted by worst"), HasSubstr("0/1/0/41 ")));
  press("r");
  EXPECT_THAT(drawn(), AllOf(HasSubstr("reversed"), Not(HasSubstr("0/1/0/41 "))));
}

TEST_F(Watch, MarksWhatTheLastPictureChanged) {
  json shelf = shelf_of(48);
  view_.take(news_of(shelf));
  EXPECT_THAT(drawn(), Not(HasSubstr("55.00*")));
  shelf["ports"][2]["temperature_c"] = 55;
  view_.take(news_of(shelf));
  EXPECT_THAT(drawn(), HasSubstr("55.00*"));
  view_.take(news_of(shelf));
  EXPECT_THAT(drawn(), AllOf(HasSubstr("55.00"), Not(HasSubstr("55.00*"))));
}

TEST_F(Watch, OldValuesNeverLookNew) {
  view_.take(news_of(shelf_of(48)));
  port_news none;
  none.polling = {outcome::unreachable, nullptr, "no driver answers"};
  view_.take(none);
  EXPECT_THAT(drawn(), AllOf(HasSubstr("no driver since "), HasSubstr("trying again"),
                             HasSubstr("no driver answers"), Not(HasSubstr("0/1/0/1 "))));
  view_.take(news_of(shelf_of(48)));
  EXPECT_THAT(drawn(), AllOf(HasSubstr("0/1/0/1 "), Not(HasSubstr("no driver"))));
}

TEST_F(Watch, ADriverThatDoesNotAnswerIsTold) {
  view_.take(news_of(shelf_of(48)));
  EXPECT_FALSE(view_.wait_for_answer(std::chrono::seconds(1)));
  EXPECT_TRUE(view_.wait_for_answer(std::chrono::seconds(5)));
  EXPECT_THAT(drawn(),
              AllOf(HasSubstr("no answer of the driver for 5 s"), Not(HasSubstr("0/1/0/1 "))));
  EXPECT_TRUE(view_.wait_for_answer(std::chrono::seconds(0)));
  EXPECT_THAT(drawn(), HasSubstr("0/1/0/1 "));
}

TEST(WatchInColours, DimsWhatIsOld) {
  style coloured;
  coloured.colours = true;
  watch_view view({}, {}, coloured, true);
  port_news news;
  news.polling = {outcome::done,
                  std::make_shared<const json>(json{
                      {"cycles", 1}, {"last", nullptr}, {"running", false}, {"halt", nullptr}}),
                  {}};
  news.ports = {outcome::done, std::make_shared<const json>(shelf_of(20)), {}};
  view.take(news);
  port_news none;
  none.polling = {outcome::unreachable, nullptr, "no driver answers"};
  view.take(none);
  for (const std::string &line : view.lines({80, 40})) {
    if (uncoloured(line).starts_with("0/1/0/")) {
      EXPECT_EQ(line, "\x1b[2m" + uncoloured(line) + "\x1b[0m");
    }
  }
}

TEST_F(Watch, EndsAtQ) {
  view_.take(news_of(shelf_of(2)));
  press("q");
  EXPECT_FALSE(going_on_);
}

}  // namespace
}  // namespace lumctl
