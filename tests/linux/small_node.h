// Descriptions of nodes of a port or two.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "lum_linux/node_description.h"
#include "test_folder.h"

namespace small_node {

// A port of the handle 10 + `number`; `module` has the keys that say which module it has.
inline std::string port(uint32_t number, const std::string &module) {
  return "[[slot.instance.port]]\nnumber = " + std::to_string(number) +
         "\nhandle = " + std::to_string(10 + number) + "\n" + module + "\n";
}

// A node with these ports in slot 1; `keys` are its own but for its folders.
inline std::string with(const std::string &ports, const std::string &keys = "name = 'node'") {
  return keys + R"(
state_directory = "state"
trace_directory = "traces"
led_directory = "leds"
api_socket = "run/api.sock"
[[slot]]
number = 1
[[slot.instance]]
capacity = 4
)" + ports;
}

// What a right description in that folder describes.
inline lum_linux::node_description described(const std::string &text, const test_folder &folder) {
  const auto result = lum_linux::parse_node_description(text, folder / "node.toml");
  for (const auto &problem : result.problems) ADD_FAILURE() << to_string(problem);
  return result.node.value_or(lum_linux::node_description{});
}

}  // namespace small_node
