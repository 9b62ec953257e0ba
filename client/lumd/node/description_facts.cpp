#include "node/description_facts.h"

#include <fmt/format.h>

#include <algorithm>

namespace lumd {
namespace {

using lum_linux::module_backend;
using lum_linux::node_description;
using lum_linux::port_description;

std::string or_none(const std::string &text) { return text.empty() ? "none" : text; }

std::string describe_module(const lum_linux::module_description &module) {
  std::string text;
  switch (module.backend) {
    case module_backend::file:
      text = "module " + module.file.native();
      break;
    case module_backend::i2c_dev:
      text = fmt::format("module {} {:#04x}", module.i2c_bus.native(), module.i2c_address);
      break;
    case module_backend::simulated:
      text = "simulated module " + module.file.native();
      break;
  }
  if (module.presence.empty()) return text;
  return text + fmt::format(", presence {} {}", module.presence.native(), module.presence_value);
}

class fact_list {
 public:
  void add(std::string name, std::string value, std::string of = {}) {
    facts_.push_back({std::move(name), std::move(value), std::move(of), false});
  }
  void add_live(std::string name, std::string value, std::string of = {}) {
    facts_.push_back({std::move(name), std::move(value), std::move(of), true});
  }
  description_facts take() { return std::move(facts_); }

 private:
  description_facts facts_;
};

void add_interface_manager(const lum_linux::im_description &im, fact_list &facts) {
  facts.add_live("interface_manager delay_ms", fmt::format("{}", im.delay_min_ms));
  facts.add_live("interface_manager delay_max_ms", fmt::format("{}", im.delay_max_ms));
  facts.add_live("interface_manager seed", fmt::format("{}", im.seed));
  facts.add_live("interface_manager out_of_order", im.out_of_order ? "true" : "false");
  facts.add("interface_manager handle_base", fmt::format("{:#x}", im.handle_base));
}

void add_units(const lum_linux::setting_units &units, fact_list &facts) {
  facts.add_live("units threshold", or_none(units.threshold));
  facts.add_live("units p2_setting", or_none(units.p2_setting));
  facts.add_live("units setting_a", or_none(units.setting_a));
  facts.add_live("units setting_b", or_none(units.setting_b));
}

void add_port(const port_description &port, fact_list &facts) {
  const uint32_t rsip = port.rsip;
  const std::string place =
      fmt::format("port {}/{}/{}/{}", rsip >> 24, rsip >> 16 & 0xFF, rsip >> 8 & 0xFF, rsip & 0xFF);
  facts.add(place, fmt::format("handle {}, {}, LED {}", port.handle, describe_module(port.module),
                               or_none(port.led)));
  facts.add_live(place + " name", port.name, place);
}

const description_fact *find(const description_facts &facts, const std::string &name) {
  const auto found =
      std::find_if(facts.begin(), facts.end(), [&](const auto &fact) { return fact.name == name; });
  return found == facts.end() ? nullptr : &*found;
}

// What comes or goes with another fact is told with that.
bool is_told_by_another(const description_facts &others, const description_fact &fact) {
  return !fact.of.empty() && find(others, fact.of) == nullptr;
}

}  // namespace

description_facts facts_of(const node_description &node) {
  fact_list facts;
  facts.add_live("name", node.name);
  facts.add("rack", fmt::format("{}", node.rack));
  facts.add("state_directory", node.state_directory.native());
  facts.add("trace_directory", node.trace_directory.native());
  facts.add("led_directory", node.led_directory.native());
  facts.add("api_socket", node.api_socket.native());
  facts.add("socket_group", or_none(node.socket_group));
  facts.add("http_port", node.http_port ? fmt::format("{}", *node.http_port) : "none");
  facts.add("http_address", node.http_address);
  facts.add_live("http_certificate", or_none(node.http_certificate.native()));
  facts.add_live("http_key", or_none(node.http_key.native()));
  facts.add_live("http_client_ca", or_none(node.http_client_ca.native()));
  facts.add_live("http_names", or_none(fmt::format("{}", fmt::join(node.http_names, ", "))));
  facts.add("syslog_receiver",
            node.syslog_receiver ? lum_linux::to_string(*node.syslog_receiver) : "none");
  add_interface_manager(node.interface_manager, facts);
  add_units(node.units, facts);
  for (const auto &slot : node.slots) {
    for (const auto &instance : slot.instances) {
      facts.add(fmt::format("slot {} instance {}", slot.number, instance.number),
                fmt::format("capacity {}", instance.capacity));
      for (const port_description &port : instance.ports) add_port(port, facts);
    }
  }
  return facts.take();
}

std::vector<description_change> changes_between(const description_facts &is,
                                                const description_facts &is_to_be) {
  const bool same_ports = has_same_ports(is, is_to_be);
  std::vector<description_change> changes;
  for (const description_fact &fact : is_to_be) {
    const description_fact *before = find(is, fact.name);
    if (before == nullptr && !is_told_by_another(is, fact)) {
      changes.push_back({fmt::format("{} is new: {}", fact.name, fact.value), false});
    } else if (before != nullptr && before->value != fact.value) {
      changes.push_back({fmt::format("{}: {} -> {}", fact.name, before->value, fact.value),
                         before->live && (same_ports || fact.of.empty())});
    }
  }
  for (const description_fact &fact : is) {
    if (find(is_to_be, fact.name) != nullptr || is_told_by_another(is_to_be, fact)) continue;
    changes.push_back({fmt::format("{} is gone", fact.name), false});
  }
  return changes;
}

bool has_same_ports(const description_facts &one, const description_facts &other) {
  const auto are_in = [](const description_facts &these, const description_facts &those) {
    return std::all_of(these.begin(), these.end(), [&](const description_fact &fact) {
      return fact.of.empty() || find(those, fact.name) != nullptr;
    });
  };
  return are_in(one, other) && are_in(other, one);
}

}  // namespace lumd
