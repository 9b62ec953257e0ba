// The interface manager, and what it is to do wrong.
#include <fmt/format.h>

#include <cstdint>

#include "commands/exchange.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

std::uint64_t number(const json &object, const char *name) {
  return object.at(name).get<std::uint64_t>();
}

std::string code_text(const json &object) {
  const std::uint64_t code = number(object, "code");
  return code > 0xFFFF ? fmt::format("0x{:08x}", code) : fmt::format("{}", code);
}

void print_batches(const json &behaviour, const char *member, const char *what) {
  const json &fault = behaviour.at(member);
  if (number(fault, "batches") == 0) return;
  std::string how;
  if (fault.contains("code")) how = fmt::format(" with code {}", code_text(fault));
  if (fault.contains("kind")) how = fmt::format(", {}", text_or_dash(fault.at("kind")));
  fmt::print("  {} the next {}{}\n", what, number(fault, "batches"), how);
}

void print_behaviour(const json &answer) {
  const json &now = answer.at("behaviour");
  fmt::print("Batches:\n");
  print_batches(now, "refuse", "refused:");
  print_batches(now, "drop", "dropped:");
  print_batches(now, "fail", "failed whole:");
  print_batches(now, "empty", "answered empty:");
  print_batches(now, "malform", "create replies malformed:");
  const json &delay = now.at("delay_ms");
  fmt::print("  answered after {} to {} ms{}{}\n", number(delay, "min"), number(delay, "max"),
             now.at("out_of_order").get<bool>() ? ", newest first" : "",
             now.at("held").get<bool>() ? ", held" : "");
  for (const json &name : now.at("fail_names")) {
    fmt::print("  elements of {} fail with code {}\n", text_or_dash(name.at("name")),
               code_text(name));
  }
  const json &every = now.at("fail_every");
  if (number(every, "nth") != 0) {
    fmt::print("  every {}th element fails with code {}\n", number(every, "nth"), code_text(every));
  }
}

void print_im(const json &answer) {
  fmt::print("Controllers: {}\n", number(answer, "controllers"));
  print_behaviour(answer);
  fmt::print("So far:\n");
  for (const auto &[name, count] : answer.at("statistics").items()) {
    fmt::print("  {:<16} {}\n", name, count.get<std::uint64_t>());
  }
}

// One action: its body is filled in by the options of its command.
class action {
 public:
  action(CLI::App &im, command_line &line, const std::string &name, const std::string &help)
      : command_(*im.add_subcommand(name, help)), body_(std::make_shared<json>()) {
    (*body_)["action"] = name;
    finish(command_, line,
           [&line, body = body_] { return change(line, "/v1/im", *body, print_behaviour); });
  }

  action &number(const std::string &name, const std::string &help) {
    add<std::uint32_t>(name, name, help)->required();
    return *this;
  }
  action &text(const std::string &name, const std::string &help) {
    add<std::string>(name, name, help)->required();
    return *this;
  }
  action &milliseconds(const std::string &name, const std::string &help) {
    add<std::uint32_t>(name, name + "_ms", help)->required();
    return *this;
  }
  action &option(const std::string &name, const std::string &member, const std::string &help) {
    add<std::uint32_t>("--" + name, member, help);
    return *this;
  }
  action &on_or_off() {
    command_
        .add_option_function<std::string>(
            "state", [body = body_](const std::string &state) { (*body)["on"] = state == "on"; },
            "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    return *this;
  }
  action &flag(const std::string &name, const std::string &help) {
    command_.add_flag_callback(
        "--" + name, [body = body_, name] { (*body)[name] = true; }, help);
    return *this;
  }

 private:
  template <typename Value>
  CLI::Option *add(const std::string &name, const std::string &member, const std::string &help) {
    return command_.add_option_function<Value>(
        name, [body = body_, member](const Value &value) { (*body)[member] = value; }, help);
  }

  CLI::App &command_;
  std::shared_ptr<json> body_;
};

void add_faults(CLI::App &im, command_line &line) {
  const char *batches = "How many batches; 0 takes back what is left";
  const char *code = "A cerrno, 1 or more";
  const char *element_code = "A cerrno; 0 takes the fault back";
  action(im, line, "refuse", "Refuse the next batches")
      .number("count", batches)
      .number("code", code);
  action(im, line, "drop", "Accept the next batches and never answer them")
      .number("count", batches);
  action(im, line, "fail-next", "Answer the next batches with a failure of the whole batch")
      .number("count", batches)
      .number("code", code);
  action(im, line, "fail-name", "Fail every element of a controller's name")
      .text("name", "The controller's name, such as Ots0_1_0_1_0")
      .number("code", element_code);
  action(im, line, "fail-every", "Fail every n-th element")
      .number("nth", "2 fails every other one; 0 takes the fault back")
      .number("code", element_code);
  action(im, line, "empty", "Answer the next batches with a count of 0").number("count", batches);
  action(im, line, "malform",
         "Spoil the replies to the next create batches; the driver ends when it reads one")
      .number("count", batches)
      .text("kind", "garbage, truncated, missing-member or absent");
}

void add_manners(CLI::App &im, command_line &line) {
  action(im, line, "delay", "Answer each batch after a random time")
      .milliseconds("min", "Milliseconds")
      .milliseconds("max", "Milliseconds")
      .option("seed", "seed", "Of the random times");
  action(im, line, "hold", "Answer no batch while on").on_or_off();
  action(im, line, "out-of-order", "Let batches gather and answer the newest first")
      .on_or_off()
      .option("window", "window_ms", "Milliseconds to gather for; 20 unless given");
  action(im, line, "restart", "Forget every controller, once pending batches are answered")
      .flag("drop", "Drop pending batches instead");
  action(im, line, "behave", "Take back every fault, delay and hold");
}

}  // namespace

void add_im(CLI::App &app, command_line &line) {
  CLI::App *im = app.add_subcommand("im", "The interface manager: its state, faults and restart");
  im->require_subcommand(1);
  CLI::App *show_command = im->add_subcommand("show", "What it is asked to do, and has done");
  finish(*show_command, line, [&line] { return show(line, "/v1/im", print_im); });
  add_faults(*im, line);
  add_manners(*im, line);
}

}  // namespace lumctl
