// Which lines of the traces are of one port.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

#include "trace/trace_line.h"

namespace lumctl {

class port_lines {
 public:
  explicit port_lines(std::uint32_t rsip) : rsip_(rsip) {}

  // Until the lines say otherwise, the handle is of this port.
  void know_handle(std::uint32_t ifhandle) { handles_[ifhandle] = rsip_; }

  // Whether the line names the port: by its position, packed or in parts, by an interface of it, or
  // by an interface's handle. Lines have to come in the order of their time, for they tell which
  // handle is whose. A line that has an instance and a port without a slot is of every such port.
  bool has(const trace_line &line);

 private:
  std::uint32_t rsip_;
  std::map<std::uint32_t, std::uint32_t> handles_;  // to the port's rsip
};

}  // namespace lumctl
