// Tables and texts as lumctl prints them, without a driver and without a terminal.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "commands/port_selection.h"
#include "printing/port_columns.h"
#include "printing/port_order.h"
#include "printing/ports_table.h"
#include "printing/table.h"
#include "shelf_answers.h"
#include "terminal/glyphs.h"

namespace lumctl {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string wide_name =
    "\xe5\x85\x89\xe5\x9b\x9e\xe7\xb7\x9a";  // three characters, six columns
const std::string ellipsis = "\xe2\x80\xa6";

TEST(Glyphs, AreAsWideAsTheTerminalShowsThem) {
  EXPECT_EQ(display_width(wide_name), 6U);
  EXPECT_EQ(display_width("a\xcc\x88"), 1U) << "a sign that stands upon the letter before it";
  EXPECT_EQ(display_width("\x1b[1;31mred\x1b[0m"), 3U);
  EXPECT_EQ(display_width("\xff\xfe"), 2U) << "no characters at all";
}

TEST(Glyphs, ShortenedTextKeepsBothEndsAndSaysSo) {
  EXPECT_EQ(shortened("shelf-west-17", 13), "shelf-west-17");
  EXPECT_EQ(shortened("shelf-west-17", 9), "shel" + ellipsis + "t-17");
  EXPECT_THAT(shortened(wide_name + wide_name, 8), AllOf(FitsInto(8), HasSubstr(ellipsis)));
  for (std::size_t width = 0; width < 20; ++width) {
    EXPECT_THAT(shortened(wide_name + "a\xcc\x88" + wide_name, width), FitsInto(width));
  }
}

TEST(Glyphs, WrappedTextLosesNothing) {
  EXPECT_EQ(wrapped("one two three", 7, 2), "one two\n  three");
  EXPECT_EQ(wrapped("one two three", 0, 2), "one two three");
  EXPECT_EQ(wrapped("abcdefghij", 4, 1), "abcd\n efg\n hij");
  EXPECT_EQ(wrapped("  title  value value", 18, 9), "  title  value\n         value");
  EXPECT_EQ(uncoloured("\x1b[31mred\x1b[0m"), "red");
}

const table three_columns = {
    {{{{"PORT"}, {"N", true}, {"TEXT"}}, 0}},
    {{{{{{"west"}, {"10"}, {"long text"}}}}, "a note"}, {{{{{wide_name}, {"7"}, {"x"}}}}, ""}}};

TEST(Table, FoldsBetweenCells) {
  style narrow;
  narrow.columns = 14;
  EXPECT_EQ(render(three_columns, narrow),
            "PORT     N\n"
            "    TEXT\n"
            "west    10\n"
            "    long text\n"
            "    a note\n" +
                wide_name +
                "   7\n"
                "    x\n");
}

TEST(Table, IsWholeWhereNothingFolds) {
  EXPECT_EQ(lines_of(render(three_columns, {})).front(), "PORT     N  TEXT");
}

table of_values(const std::string &first, const std::string &age) {
  return {{{{{"VALUE"}, {"AGE", true, true}}, 0}}, {{{{{{first}, {age}}}}, {}, {}, "west"}}};
}

TEST(Table, MarksWhatHasChangedButNoAges) {
  table now = of_values("3", "2");
  mark_changes(now, of_values("2", "1"));
  EXPECT_TRUE(now.records[0].lines[0][0][0].changed);
  EXPECT_FALSE(now.records[0].lines[0][0][1].changed);
  EXPECT_THAT(render(now, {}), HasSubstr("3*"));
  style coloured;
  coloured.colours = true;
  EXPECT_THAT(render(now, coloured), AllOf(HasSubstr("\x1b[7m3"), Not(HasSubstr("*"))));
}

TEST(Table, MarksNothingOfWhatIsNew) {
  table now = of_values("3", "2");
  table other = of_values("2", "1");
  other.records[0].subject = "east";
  mark_changes(now, other);
  EXPECT_FALSE(now.records[0].lines[0][0][0].changed);
}

style of_width(std::size_t columns) {
  style output;
  output.columns = columns;
  return output;
}

TEST(PortsTable, HasALineForEachOfManyPorts) {
  for (const unsigned columns : {60U, 80U, 120U}) {
    const auto lines = lines_of(describe_ports(shelf_of(240), {}, of_width(columns)));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &line) { return line.starts_with("0/1/0/"); }),
              240);
    EXPECT_THAT(lines, Each(FitsInto(columns)));
    EXPECT_THAT(lines, Contains(HasSubstr("not shown at " + std::to_string(columns) + ": ")));
  }
}

TEST(PortsTable, HasAllOfFewPorts) {
  const std::string text = describe_ports(shelf_of(2), {}, of_width(60));
  EXPECT_THAT(lines_of(text), Each(FitsInto(60)));
  EXPECT_THAT(text, AllOf(HasSubstr("Ots1"), HasSubstr("S0/1/0/2"), HasSubstr("SUPPLY V")));
}

TEST(PortsTable, IsWholeWhereNobodySaysHowWideItMayBe) {
  const std::string text = describe_ports(shelf_of(240), {}, of_width(0));
  EXPECT_THAT(text,
              AllOf(HasSubstr("IFHANDLE"), HasSubstr("S0/1/0/240"), Not(HasSubstr("not shown"))));
  EXPECT_EQ(lines_of(text).size(), 1U + 2U * 240U);
}

TEST(PortsTable, SaysWhatItLeavesOutColumnByColumn) {
  const ports_wish brief = {ports_form::brief, {}};
  const std::string text = describe_ports(shelf_of(3), brief, of_width(60));
  const std::string titles = lines_of(text).front();
  for (const port_column &one : port_columns()) {
    if (!one.rank) continue;
    const bool shown = (" " + titles + " ").find(" " + one.shown.title + " ") != std::string::npos;
    const std::string notes = text.substr(text.find("not shown"));
    EXPECT_NE(shown, notes.find(one.shown.title) != std::string::npos) << one.name;
  }
}

TEST(PortsTable, TellsWhatIsWrongWithPortsOnceForEachReason) {
  json shelf = shelf_of(20);
  for (const unsigned which : {3U, 7U}) {
    shelf["ports"][which]["state"] = "empty";
    shelf["ports"][which]["reason"] = "there is no module";
  }
  EXPECT_THAT(describe_ports(shelf, {}, of_width(80)),
              HasSubstr("there is no module (0/1/0/4, 0/1/0/8)\n"));
}

TEST(PortsTable, ShortensLongNamesAndKeepsThemApart) {
  const std::string prefix = std::string(59, 'x') + "-";
  const std::string text = describe_ports(shelf_of(100, prefix), {}, of_width(60));
  const auto lines = lines_of(text);
  EXPECT_THAT(lines, Each(FitsInto(60)));
  EXPECT_THAT(text, HasSubstr("Names are shortened to 20 columns; --columns port"));
  std::set<std::string> names;
  for (const std::string &line : lines) {
    if (line.starts_with("x")) names.insert(line.substr(0, line.find(' ')));
  }
  EXPECT_EQ(names.size(), 100U);
}

TEST(PortsTable, HasWholeNamesWhereTheirColumnIsAskedFor) {
  const std::string prefix = std::string(60, 'x');
  const ports_wish wish = {ports_form::fitting, {"port", "state", "reason"}};
  const std::string text = describe_ports(shelf_of(2, prefix), wish, of_width(60));
  EXPECT_THAT(text, AllOf(HasSubstr(prefix + "1\n"), Not(HasSubstr(ellipsis)),
                          Not(HasSubstr("not shown"))));
}

TEST(PortsTable, AlignsWideCharacters) {
  const ports_wish brief = {ports_form::brief, {}};
  const json shelf = answer_of({port(wide_name, 1, "up", -3), port("abcdef", 2, "up", -3)});
  const auto lines = lines_of(describe_ports(shelf, brief, of_width(60)));
  EXPECT_EQ(display_width(lines[1]), display_width(lines[2]));
}

TEST(PortOrder, WorstFirst) {
  json ports = {port("fine", 1, "up", -3),
                port("empty", 2, "empty", -3),
                port("alarm", 3, "up", -3, {"flag-10"}),
                port("stale", 4, "stale", -3),
                port("failing", 5, "failing", -3),
                port("coming", 6, "coming up", -3),
                port("alarms", 7, "up", -3, {"flag-10", "flag-11"})};
  sort_ports(ports, worst_first, false);
  EXPECT_THAT(names_in(ports),
              ElementsAre("failing", "stale", "alarms", "alarm", "coming", "empty", "fine"));
  sort_ports(ports, worst_first, true);
  EXPECT_EQ(names_in(ports).front(), "fine");
}

TEST(PortOrder, NumbersFromTheLargestAndTheUnknownLast) {
  json ports = {port("a", 1, "up", -9), port("b", 2, "up", -3), port("c", 3, "up", -30)};
  ports[1]["sub_ports"][0]["readings"] = json::array();
  sort_ports(ports, "power-0:0", false);
  EXPECT_THAT(names_in(ports), ElementsAre("a", "c", "b"));
  sort_ports(ports, "power-0:0", true);
  EXPECT_THAT(names_in(ports), ElementsAre("c", "a", "b"));
}

TEST(PortOrder, NamesAreSortedAsPeopleCount) {
  json ports = {port("0/1/0/10", 10, "up", -9), port("0/1/0/9", 9, "up", -3)};
  sort_ports(ports, "port", false);
  EXPECT_THAT(names_in(ports), ElementsAre("0/1/0/9", "0/1/0/10"));
}

TEST(PortOrder, EveryColumnCanBeSortedBy) {
  for (const std::string &order : port_orders()) {
    json ports = shelf_of(5)["ports"];
    sort_ports(ports, order, false);
    EXPECT_EQ(ports.size(), 5U) << order;
  }
}

TEST(PortColumns, AlarmsAreKnownOnlyWhenThoseOfBothSubPortsAre) {
  json one = port("a", 1, "up", -3, {"flag-10"});
  EXPECT_EQ(alarms_raised(one), 2U);
  one["sub_ports"][1]["pm"] = json::object();
  EXPECT_EQ(alarms_raised(one), std::nullopt);
}

TEST(PortSelection, ByNamePositionStateSlotAndText) {
  const json shelf = answer_of(
      {port("west", 1, "up", -3), port("east", 2, "failing", -3), port("north", 101, "up", -3)});
  const auto selected = [&shelf](const port_selection &wanted) {
    json answer = shelf;
    EXPECT_EQ(select_ports(answer, wanted), 3U);
    return names_in(answer["ports"]);
  };
  EXPECT_THAT(selected({}), ElementsAre("west", "east", "north"));
  EXPECT_THAT(selected({.names = {"west", "0/1/0/2"}}), ElementsAre("west", "east"));
  EXPECT_THAT(selected({.states = {"failing", "empty"}}), ElementsAre("east"));
  EXPECT_THAT(selected({.place = "2"}), ElementsAre("north"));
  EXPECT_THAT(selected({.place = "2/1"}), IsEmpty());
  EXPECT_THAT(selected({.filter = "SNOR"}), ElementsAre("north")) << "its serial number";
}

}  // namespace
}  // namespace lumctl
