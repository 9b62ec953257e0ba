// What lumctl can be told to do, as plain records: the command line, its help and the shell's
// completion are made of them.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "api/destination.h"
#include "command_line/given.h"
#include "terminal/style.h"

namespace lumctl {

constexpr std::chrono::seconds usual_patience(30);

// What every command knows besides its own words.
struct session {
  destination driver;
  style output;
  std::chrono::milliseconds patience = usual_patience;  // with each of its answers
};

enum class value_kind { text, whole, real };

// Names that only a running driver knows.
enum class known_names { none, ports, sub_ports, ports_and_sub_ports, controllers, slots };

struct limits {
  double lowest = 0;
  double highest = 0;
};

// What may stand for an argument or behind an option.
struct value {
  value_kind kind = value_kind::text;
  std::optional<limits> within = {};    // of a number
  std::vector<std::string> words = {};  // offered by the completion
  bool only_words = false;              // and nothing else is taken
  bool list = false;                    // several may stand, with commas between them
  known_names names = known_names::none;
  // Empty, or what is wrong with a text.
  std::function<std::string(const std::string &)> wrong = {};
};

struct argument {
  std::string name;
  std::string help;
  value takes = {};
  bool required = true;
  bool repeated = false;
};

struct option {
  std::string name;  // without the dashes
  std::string help;
  std::optional<value> takes = {};  // a flag has none
  std::string excludes = {};        // an argument that it cannot stand beside
  char letter = 0;                  // by which a flag may be given too, behind one dash
};

// Either has commands below it, or does something.
struct command {
  std::string name;
  std::string help;
  std::vector<argument> arguments = {};
  std::vector<option> options = {};
  // Returns the exit status.
  std::function<int(const session &, const given &)> action = {};
  std::vector<command> commands = {};
  bool hidden = false;   // from help and completion
  bool asks = true;      // the driver; only then lumctl's own options have a meaning
  bool on_node = false;  // it looks at the node's files too, so a driver from afar is none for it
};

// The options of lumctl itself. They stand before a command or behind it.
constexpr const char *socket_option = "socket";
constexpr const char *url_option = "url";
constexpr const char *ca_option = "ca";
constexpr const char *cert_option = "cert";
constexpr const char *key_option = "key";
constexpr const char *json_option = "json";
constexpr const char *timeout_option = "timeout";

// Options that there are without a record: of every command, and of lumctl itself.
constexpr const char *help_option = "help";
constexpr const char *version_option = "version";

}  // namespace lumctl
