#include "commands/commands.h"

#include <fmt/format.h>

namespace lumctl {

command all_commands() {
  return {
      .name = "lumctl",
      .help = "Talks to lumd, the optics driver of one node.",
      .options = {{socket_option, "The driver's socket; LUMD_SOCKET in the environment", value{}},
                  {url_option, "A driver elsewhere, https://NODE:PORT; only to look", value{}},
                  {ca_option, "With --url: a file of those whose certificates are trusted",
                   value{}},
                  {cert_option, "With --url: a file of the own certificate", value{}},
                  {key_option, "With --cert: a file of its key, where it is another", value{}},
                  {json_option, "Print what the driver answered, as JSON"},
                  {timeout_option,
                   fmt::format("Seconds to wait for an answer, on top of --wait; {} unless given",
                               usual_patience.count()),
                   value{.kind = value_kind::real, .within = limits{0.1, 3600}}}},
      .commands = {show_commands(),   port_commands(),  set_command(),         config_commands(),
                   module_commands(), replay_command(), resync_command(),      im_commands(),
                   watch_command(),   events_command(), trace_command(),       check_command(),
                   explain_command(), decode_command(), support_command(),     clear_commands(),
                   inject_commands(), ea_commands(),    completion_commands(), complete_command()}};
}

argument port_name() {
  return {"name", "The port's name, or rack/slot/instance/port",
          value{.names = known_names::ports}};
}

argument port_or_sub_port_name() {
  return {"name", "The port's name, or rack/slot/instance/port; behind it :0 or :1 for a sub-port",
          value{.names = known_names::ports_and_sub_ports}};
}

argument optional_port_name() {
  return {"name", "Only this port", value{.names = known_names::ports}, false};
}

}  // namespace lumctl
