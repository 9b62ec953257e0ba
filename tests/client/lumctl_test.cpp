// What lumctl is made of, without a driver.
#include <gmock/gmock.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "command_line/candidates.h"
#include "commands/commands.h"
#include "lum_linux/module_faults.h"
#include "names.h"
#include "printing/pm_table.h"
#include "printing/table.h"
#include "terminal/printable.h"
#include "terminal/progress.h"
#include "wording/nearest.h"
#include "wording/numbers.h"
#include "words/controller_states.h"
#include "words/malformations.h"
#include "words/module_faults.h"

namespace lumctl {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using words = std::vector<std::string>;

const session nowhere = {{"/nowhere/socket"}, {}};

words offered(words typed) {
  typed.emplace_back();
  return candidates(all_commands(), nowhere, typed);
}

// Calls `look` with every command that can be typed and the words that lead to it.
void for_every_command(const command &at, const words &path,
                       const std::function<void(const command &, const words &)> &look) {
  look(at, path);
  for (const command &below : at.commands) {
    words longer = path;
    longer.push_back(below.name);
    if (!below.hidden) for_every_command(below, longer, look);
  }
}

void for_every_command(const std::function<void(const command &, const words &)> &look) {
  for_every_command(all_commands(), {}, look);
}

TEST(Completion, OffersEveryCommandOptionAndFixedWord) {
  for_every_command([](const command &at, const words &path) {
    const words here = offered(path);
    for (const command &below : at.commands) {
      if (!below.hidden) {
        EXPECT_THAT(here, Contains(below.name));
      }
    }
    for (const option &one : at.options) {
      EXPECT_THAT(here, Contains("--" + one.name));
      words behind = path;
      behind.push_back("--" + one.name);
      if (one.takes) {
        EXPECT_EQ(offered(behind), one.takes->words);
      }
    }
    words so_far = path;
    for (const argument &one : at.arguments) {
      const words now = offered(so_far);
      for (const std::string &word : one.takes.words) EXPECT_THAT(now, Contains(word));
      so_far.emplace_back("x");
    }
  });
}

TEST(Completion, OffersAnArgumentAgainOnlyWhereItMayBeRepeated) {
  EXPECT_THAT(offered({"module", "fault", "west", "hang"}), Contains("none"));
  EXPECT_THAT(offered({"im", "hold", "on"}), ElementsAre("--socket", "--url", "--ca", "--cert",
                                                         "--key", "--json", "--timeout", "--help"));
}

TEST(Completion, GoesOnWithAList) {
  EXPECT_THAT(candidates(all_commands(), nowhere, {"show", "ports", "--state", "failing,s"}),
              ElementsAre("failing,stale"));
  EXPECT_THAT(candidates(all_commands(), nowhere, {"show", "ports", "-b", "--columns", "port,fi"}),
              ElementsAre("port,firmware"));
}

TEST(Completion, OffersTheOptionsOfEveryCommandWhereADriverIsAsked) {
  for_every_command([](const command &at, const words &path) {
    const words here = offered(path);
    for (const option &one : all_commands().options) {
      const bool is_its_own =
          std::any_of(at.options.begin(), at.options.end(),
                      [&one](const option &own) { return own.name == one.name; });
      EXPECT_EQ(std::count(here.begin(), here.end(), "--" + one.name),
                at.asks || is_its_own ? 1 : 0)
          << at.name;
    }
  });
}

TEST(Completion, OffersNoWordThatWouldSteerATerminal) {
  const command odd = {.name = "odd",
                       .help = "",
                       .commands = {{.name = "a\x1b[2J", .help = ""}, {.name = "b", .help = ""}}};
  EXPECT_THAT(candidates(odd, nowhere, {""}), ElementsAre("b", "--help", "--version"));
}

TEST(Commands, EachActsOrHasCommandsBelowIt) {
  for_every_command([](const command &at, const words &) {
    EXPECT_NE(at.action != nullptr, !at.commands.empty()) << at.name;
    EXPECT_THAT(at.help, Not(IsEmpty())) << at.name;
  });
}

TEST(Commands, OnlyTheLastArgumentMayBeLeftOutOrRepeated) {
  for_every_command([](const command &at, const words &) {
    for (std::size_t i = 0; i + 1 < at.arguments.size(); ++i) {
      EXPECT_TRUE(at.arguments[i].required && !at.arguments[i].repeated) << at.name;
    }
  });
}

// What is typed for lumctl and for a command is kept in one place.
TEST(Commands, NoWordMeansTwoThings) {
  const command lumctl = all_commands();
  for_every_command([&](const command &at, const words &path) {
    std::multiset<std::string> names;
    for (const argument &one : at.arguments) names.insert(one.name);
    for (const option &one : at.options) names.insert(one.name);
    if (!path.empty() && at.asks) {
      for (const option &one : lumctl.options) names.insert(one.name);
    }
    for (const std::string &name : names) EXPECT_EQ(names.count(name), 1U) << at.name << name;
  });
}

TEST(Wording, FindsTheWordThatWasMeant) {
  const std::vector<std::string_view> known = {"threshold", "p2-setting", "mode", "setting-a"};
  EXPECT_EQ(lum_wording::nearest("treshold", known), "threshold");
  EXPECT_EQ(lum_wording::nearest("thersohld", known), "threshold");
  EXPECT_EQ(lum_wording::nearest("P2_Setting", known), "p2-setting");
  EXPECT_EQ(lum_wording::nearest("mdoe", known), "mode");
  EXPECT_EQ(lum_wording::nearest("setting-c", known), "setting-a");
  EXPECT_EQ(lum_wording::did_you_mean("mdoe", known), " (did you mean \"mode\"?)");
  for (const std::string &far : {std::string(), std::string("x"), std::string("colour"),
                                 std::string(100, 'm'), std::string(100000, 't')}) {
    EXPECT_EQ(lum_wording::did_you_mean(far, known), "") << far;
  }
  EXPECT_EQ(lum_wording::did_you_mean("mode", words()), "");
}

TEST(Wording, CountsLettersThatDiffer) {
  EXPECT_EQ(lum_wording::distance("", ""), 0U);
  EXPECT_EQ(lum_wording::distance("", "abc"), 3U);
  EXPECT_EQ(lum_wording::distance("abc", ""), 3U);
  EXPECT_EQ(lum_wording::distance("abc", "abd"), 1U);
  EXPECT_EQ(lum_wording::distance("abc", "ac"), 1U);
  EXPECT_EQ(lum_wording::distance("abc", "acb"), 1U);
  EXPECT_EQ(lum_wording::distance("abcd", "badc"), 2U);
}

TEST(Wording, TellsOneFromMany) {
  using lum_wording::counted;
  using lum_wording::ordinal;
  EXPECT_EQ(counted(0, "port"), "0 ports");
  EXPECT_EQ(counted(1, "port"), "1 port");
  EXPECT_EQ(counted(21, "port"), "21 ports");
  EXPECT_EQ(counted(1, "entry", "entries"), "1 entry");
  EXPECT_EQ(counted(2, "entry", "entries"), "2 entries");
  const std::vector<std::pair<std::uint64_t, std::string>> expected = {
      {0, "0th"},     {1, "1st"},     {2, "2nd"},     {3, "3rd"},     {4, "4th"},      {10, "10th"},
      {11, "11th"},   {12, "12th"},   {13, "13th"},   {21, "21st"},   {22, "22nd"},    {23, "23rd"},
      {101, "101st"}, {111, "111th"}, {112, "112th"}, {113, "113th"}, {1011, "1011th"}};
  for (const auto &[number, text] : expected) EXPECT_EQ(ordinal(number), text);
}

TEST(Names, AreListedAsInASentence) {
  EXPECT_EQ(listed(lum_words::controller_states), "up or down");
  EXPECT_EQ(listed(names_of(lum_words::malformations)),
            "garbage, truncated, missing-member or absent");
  EXPECT_EQ(lum_words::member_of("p2-setting"), "p2_setting");
}

TEST(Names, EveryOfferedFaultIsTakenByThePlatform) {
  words offered_faults = as_words(lum_words::module_faults);
  offered_faults.emplace_back(lum_words::no_module_fault);
  for (const std::string &word : offered_faults) {
    lum_linux::fault_script script;
    std::string error;
    EXPECT_TRUE(parse_fault_script(word.ends_with('=') ? word + "1" : word, script, error))
        << error;
  }
}

TEST(Names, UnknownStatesHaveAColour) {
  EXPECT_EQ(colour_of_port("up"), colour::good);
  EXPECT_EQ(colour_of_port("unheard of"), colour::warning);
  EXPECT_EQ(colour_of_led("unheard of"), colour::none);
}

TEST(Table, NumbersStandToTheRightAndLinesEndWithTheirText) {
  const table shown = {{{{{"NAME"}, {"N", true}, {"TEXT"}}, 0}},
                       {{{{{{"a"}, {"10"}, {"long text"}}, {{}, {"7"}, {"x"}}}}, "note"}}};
  EXPECT_EQ(render(shown, {}),
            "NAME   N  TEXT\n"
            "a     10  long text\n"
            "       7  x\n"
            "    note\n");
  EXPECT_EQ(table_width(shown, {}), 19U);
}

// What is printed of a bin in which each of the values has been 7 all the time.
std::string describe_bin(const words &names) {
  json values = json::array();
  for (const std::string &name : names) {
    values.push_back({{"name", name},
                      {"value", {{"current", 7}, {"minimum", 7}, {"maximum", 7}, {"average", 7}}}});
  }
  const json bin = {{"length", "15min"}, {"start", "now"},  {"samples", 1},
                    {"partial", false},  {"tested", false}, {"values", values}};
  return describe_pm(
      {{"interfaces", {{{"port", "west"}, {"sub_port", 0}, {"polled", true}, {"bins", {bin}}}}},
       {"halt", nullptr}},
      {});
}

TEST(PmTable, ShowsAValueThatIsHandedOverSeveralTimesOnce) {
  const std::string text = describe_bin({"reading-4-a", "reading-4-b", "reading-4-c", "power-1"});
  EXPECT_THAT(text, HasSubstr(" reading-4 "));
  EXPECT_THAT(text, HasSubstr(" power-1 "));
  EXPECT_THAT(text, Not(HasSubstr("reading-4-")));
}

TEST(PmTable, ShowsBothOfTwoReadingsThatAreEqual) {
  const std::string text = describe_bin({"reading-3", "reading-4-a", "reading-4-b", "reading-4-c"});
  EXPECT_THAT(text, HasSubstr(" reading-3 "));
  EXPECT_THAT(text, HasSubstr(" reading-4 "));
}

TEST(Terminal, IsNotSteeredByTexts) {
  EXPECT_EQ(printable("a\x1b[2J\x7f\xc2\x9b\xc3\xa4"), "a?[2J??\xc3\xa4");
  EXPECT_EQ(display_width("b\xc3\xa4"), 2U);
}

TEST(Progress, FillsTowardsItsEndAndMovesWithoutOne) {
  using std::chrono::milliseconds;
  EXPECT_EQ(progress_bar(milliseconds(500), milliseconds(1000), 10), "#####.....");
  EXPECT_EQ(progress_bar(milliseconds(2000), milliseconds(1000), 10), "##########");
  EXPECT_EQ(progress_bar(milliseconds(0), {}, 10), "#####.....");
  EXPECT_EQ(progress_bar(milliseconds(500), {}, 10), ".....#####");
  EXPECT_EQ(progress_bar(milliseconds(1000), {}, 10), "#####.....");
}

}  // namespace
}  // namespace lumctl
