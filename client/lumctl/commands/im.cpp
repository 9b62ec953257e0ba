// The interface manager, and what it is to do wrong.
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/exchange.h"
#include "names.h"
#include "printing/im_text.h"
#include "words/malformations.h"

namespace lumctl {
namespace {

constexpr const char *state = "state";
constexpr auto kinds = names_of(lum_words::malformations);

// What the driver calls a word of an action.
std::string member_of_word(const std::string &word) {
  return word == "min" || word == "max" || word == "window" ? word + "_ms" : word;
}

void put(json &body, const std::string &word, const std::optional<value> &takes,
         const given &words) {
  if (!words.has(word)) return;
  if (word == state) {
    body["on"] = words.text(word) == on;
  } else if (!takes) {
    body[member_of_word(word)] = true;
  } else if (takes->kind == value_kind::whole) {
    body[member_of_word(word)] = words.whole(word);
  } else {
    body[member_of_word(word)] = words.text(word);
  }
}

// An action of the interface manager: whatever is given goes into the request.
command action(const std::string &name, const std::string &help,
               const std::vector<argument> &arguments, const std::vector<option> &options = {}) {
  command described = {.name = name,
                       .help = help,
                       .arguments = arguments,
                       .action = [=](const session &now, const given &words) {
                         json body = {{"action", name}};
                         for (const argument &one : arguments) {
                           put(body, one.name, one.takes, words);
                         }
                         for (const option &one : options) put(body, one.name, one.takes, words);
                         return change(now, words, "/v1/im", body, describe_im_behaviour);
                       }};
  described.options.insert(described.options.end(), options.begin(), options.end());
  return described;
}

argument number(const std::string &name, const std::string &help) {
  return {name, help, value{.kind = value_kind::whole}};
}
argument batches() { return number("count", "How many batches; 0 takes back what is left"); }
argument code() { return number("code", "A cerrno, 1 or more"); }
argument element_code() { return number("code", "A cerrno; 0 takes the fault back"); }

argument on_or_off() {
  return {state, listed(switch_states),
          value{.words = as_words(switch_states), .only_words = true}};
}

option number_option(const std::string &name, const std::string &help) {
  return {name, help, value{.kind = value_kind::whole}};
}

std::vector<command> faults() {
  return {
      action("refuse", "Refuse the next batches", {batches(), code()}),
      action("drop", "Accept the next batches and never answer them", {batches()}),
      action("fail-next", "Answer the next batches with a failure of the whole batch",
             {batches(), code()}),
      action("fail-name", "Fail every element of a controller's name",
             {{"name", "The controller's name, such as Ots0_1_0_1_0",
               value{.names = known_names::controllers}},
              element_code()}),
      action("fail-every", "Fail every n-th element",
             {number("nth", "2 fails every other one; 0 takes the fault back"), element_code()}),
      action("empty", "Answer the next batches with a count of 0", {batches()}),
      action("malform",
             "Spoil the replies to the next create batches; the driver ends when it reads one",
             {batches(), {"kind", listed(kinds), value{.words = as_words(kinds)}}}),
  };
}

std::vector<command> manners() {
  return {
      action("delay", "Answer each batch after a random time",
             {number("min", "Milliseconds"), number("max", "Milliseconds")},
             {number_option("seed", "Of the random times")}),
      action("hold", "Answer no batch while on", {on_or_off()}),
      action("out-of-order", "Let batches gather and answer the newest first", {on_or_off()},
             {number_option("window", "Milliseconds to gather for; 20 unless given")}),
      action("restart", "Forget every controller, once pending batches are answered", {},
             {{"drop", "Drop pending batches instead"}}),
      action("behave", "Take back every fault, delay and hold", {}),
  };
}

}  // namespace

command im_commands() {
  command im = {.name = "im",
                .help = "The interface manager: its state, faults and restart",
                .commands = {{.name = "show",
                              .help = "What it is asked to do, and has done",
                              .action = [](const session &now, const given &words) {
                                return show(now, words, "/v1/im", describe_im);
                              }}}};
  for (const auto &group : {faults(), manners()}) {
    im.commands.insert(im.commands.end(), group.begin(), group.end());
  }
  return im;
}

}  // namespace lumctl
