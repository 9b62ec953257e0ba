// What commands have in common: they ask the driver, print its answer and say how it went.
#pragma once

#include <functional>
#include <string>

#include "api/client.h"
#include "api/json.h"
#include "command_line/command.h"
#include "command_line/status.h"

namespace lumctl {

// An answer of the driver as text.
using printer = std::function<std::string(const json &)>;

// The exit status of an answer that is none.
int fail_for(const api_result &result);
// And of one that lacks what it should hold.
int fail_for_missing_member();

void print_as_json(const json &answer);

// Gets `target` and prints it: as JSON when that was asked for, else through `print`. Returns the
// exit status.
int show(const session &now, const given &words, const std::string &target, const printer &print);

// Prints an answer that has been got already, likewise.
int present(const given &words, const api_result &result, const printer &print);

// What of a change has to have come about for a command to have succeeded.
enum class enough {
  all,
  accepted,    // the driver has taken it, whatever is still to come
  unanswered,  // all, or nothing stands against it but that it has not been answered yet
};

// Posts `body` to `target` and prints the reply likewise. Returns the exit status.
int change(const session &now, const given &words, const std::string &target, const json &body,
           const printer &print, enough wanted = enough::all);

// The same for a command with the wait option: what has not come about is a failure unless nobody
// wanted to wait for it.
int change_and_wait(const session &now, const given &words, const std::string &target, json body,
                    const printer &print);

// The options that make a difference to these.
bool wants_json(const given &words);
option wait_option();

// For a command that asks no driver and answers with a document all the same.
option own_json_option();

}  // namespace lumctl
