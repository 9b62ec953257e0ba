// The groups of commands, each in a source of its own.
#pragma once

#include "command_line/command.h"

namespace lumctl {

// lumctl itself, with everything below it.
command all_commands();

command check_command();
command events_command();
command explain_command();
command decode_command();
command trace_command();
command support_command();
command show_commands();
command port_commands();
command set_command();
command config_commands();
command module_commands();
command replay_command();
command resync_command();
command im_commands();
command watch_command();
command clear_commands();
command inject_commands();
command ea_commands();
command completion_commands();
command complete_command();

// Arguments that several groups have.
argument port_name();
argument optional_port_name();
argument port_or_sub_port_name();

}  // namespace lumctl
