#include "node/port_creations.h"

#include <chrono>
#include <exception>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "node/driver.h"
#include "node/lifecycle.h"
#include "node/log.h"

namespace lumd {
namespace {

using lum_linux::module_backend;
using lum_linux::port_description;

constexpr std::chrono::hours longest_wait_for_a_turn(1);
constexpr std::chrono::seconds until_memory_is_tried_again(1);

bool is_on_a_bus(const port_description &port) {
  return port.module.backend == module_backend::i2c_dev;
}

// Gives each place one number, in the order in which they are first met.
class lane_numbers {
 public:
  uint64_t of(const std::string &place) {
    return numbers_.try_emplace(place, numbers_.size()).first->second;
  }

 private:
  std::map<std::string, uint64_t> numbers_;
};

std::string place_of(const port_description &port, bool answers) {
  if (is_on_a_bus(port)) return port.module.i2c_bus.native();
  return answers ? std::string() : "port " + std::to_string(port.rsip);
}

}  // namespace

std::vector<creation> plan_creations(const lum_linux::node_description &node,
                                     const std::function<bool(uint32_t rsip)> &answers) {
  std::vector<creation> quick;
  std::vector<creation> slow;
  lane_numbers lanes;
  for (const auto &slot : node.slots) {
    for (const auto &instance : slot.instances) {
      std::map<uint64_t, std::size_t> of_this_instance;  // the lane's among the quick ones
      for (const port_description &port : instance.ports) {
        const bool is_quick = answers(port.rsip);
        const uint64_t lane = lanes.of(place_of(port, is_quick));
        if (!is_quick) {
          slow.push_back({slot.number, &instance, lane, {&port}});
          continue;
        }
        const auto [found, is_new] = of_this_instance.try_emplace(lane, quick.size());
        if (is_new) quick.push_back({slot.number, &instance, lane, {}});
        quick[found->second].ports.push_back(&port);
      }
    }
  }
  quick.insert(quick.end(), std::make_move_iterator(slow.begin()),
               std::make_move_iterator(slow.end()));
  return quick;
}

// Kept by whoever has creations to make; a slot's turn ends with the last of its own.
struct port_creations::work {
  struct one {
    uint32_t slot = 0;
    uint32_t instance = 0;
    uint64_t lane = 0;
    std::vector<lum_port_props> ports;
    std::shared_ptr<slot_turns::turn> turn;
  };
  std::vector<one> creations;
  std::atomic<std::size_t> left{0};
  std::atomic<bool> good{true};
};

port_creations::port_creations(driver &node)
    : node_(node),
      lanes_("lumd-create", {node.node().ports().size() + 1, node.node().ports().size() + 1}) {}

void port_creations::begin() {
  const auto all = std::make_shared<work>();
  std::map<uint32_t, std::shared_ptr<slot_turns::turn>> turns;
  for (const auto &slot : node_.node().slots) {
    turns[slot.number] = std::make_shared<slot_turns::turn>(
        node_.turns().take({slot.number}, longest_wait_for_a_turn));
    for (const auto &instance : slot.instances) {
      if (!CERR_IS_OK(open_when_empty(node_, slot.number, instance))) all->good = false;
    }
  }
  const auto answers = [this](uint32_t rsip) {
    const auto module = node_.platform().modules().glimpse(rsip);
    return module.known && module.present && !module.busy && !module.failed_last;
  };
  for (const creation &planned : plan_creations(node_.node(), answers)) {
    all->creations.push_back({planned.slot, planned.instance->number, planned.lane,
                              props_of(planned.ports), turns.at(planned.slot)});
  }
  turns.clear();
  all->left = all->creations.size();
  if (all->creations.empty()) ended_ = true;
  for (std::size_t i = 0; i < all->creations.size(); ++i) {
    // Without a thread for it, a port is created here.
    auto verdict = lum_linux::lane_verdict::no_thread;
    try {
      verdict = lanes_.post(all->creations[i].lane, [this, all, i] { run(all, i); });
    } catch (const std::bad_alloc &) {
    }
    if (verdict != lum_linux::lane_verdict::taken && verdict != lum_linux::lane_verdict::stopped) {
      run(all, i);
    }
  }
}

// Without memory for it, what is missing is created a little later.
void port_creations::run(const std::shared_ptr<work> &all, std::size_t which) {
  work::one &mine = all->creations[which];
  for (bool is_done = false; !is_done;) {
    try {
      if (!CERR_IS_OK(create_listed(node_, mine.slot, mine.instance, mine.ports))) {
        all->good = false;
      }
      is_done = true;
    } catch (const std::exception &) {
      std::this_thread::sleep_for(until_memory_is_tried_again);
    }
  }
  mine.turn.reset();
  if (--all->left != 0) return;
  ended_ = true;
  if (!all->good) say("the node is not complete; the API shows what there is");
}

}  // namespace lumd
