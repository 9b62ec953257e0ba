#include "node/port_creations.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iterator>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "lum_linux/modules.h"
#include "node/driver.h"
#include "node/lifecycle.h"
#include "node/log.h"

namespace lumd {
namespace {

using lum_linux::lane_verdict;
using lum_linux::module_backend;
using lum_linux::port_description;
using lum_linux::slot_description;
using std::chrono::milliseconds;

constexpr milliseconds between_turns(250);
constexpr milliseconds patience_in_order(1000);
constexpr milliseconds until_tried_again(100);
constexpr unsigned tries_for_a_thread = 50;

// A bus may have several names.
std::string name_of_bus(const std::filesystem::path &bus) {
  std::error_code code;
  const auto place = std::filesystem::canonical(bus, code);
  return code ? bus.native() : place.native();
}

}  // namespace

uint64_t creation_plan::lane_of(const port_description &port, bool answers) {
  if (port.module.backend != module_backend::i2c_dev) return answers ? in_order : another_lane();
  const auto [found, is_new] = buses_.try_emplace(name_of_bus(port.module.i2c_bus), last_ + 1);
  if (is_new) ++last_;
  return found->second;
}

std::vector<creation> creation_plan::of(const slot_description &slot, const question &answers) {
  std::vector<creation> quick;
  std::vector<creation> slow;
  for (const auto &instance : slot.instances) {
    std::map<uint64_t, std::size_t> of_this_instance;  // by lane, the place among the quick ones
    for (const port_description &port : instance.ports) {
      const bool is_quick = answers(port);
      const uint64_t lane = lane_of(port, is_quick);
      if (!is_quick) {
        slow.push_back({instance.number, lane, {&port}});
        continue;
      }
      const auto [found, is_new] = of_this_instance.try_emplace(lane, quick.size());
      if (is_new) quick.push_back({instance.number, lane, {}});
      quick[found->second].ports.push_back(&port);
    }
  }
  quick.insert(quick.end(), std::make_move_iterator(slow.begin()),
               std::make_move_iterator(slow.end()));
  return quick;
}

// A slot's turn ends with the last of its creations.
struct port_creations::work {
  uint32_t slot = 0;
  uint32_t instance = 0;
  uint64_t lane = 0;
  std::vector<lum_port_props> ports;
  std::shared_ptr<slot_turns::turn> turn;
  bool has_ended = false;
};

// As many threads as lanes there can be, and as much that waits in one.
port_creations::port_creations(driver &node)
    : node_(node),
      lanes_("lumd-create", {node.node().ports().size() + 1, node.node().ports().size() + 1}) {}

void port_creations::begin() {
  if (!slots_) {
    std::vector<uint32_t> all;
    for (const slot_description &slot : node_.node().slots) all.push_back(slot.number);
    slots_ = std::move(all);
  }
  for (milliseconds wait(0); !slots_->empty() && !stopped_; wait = between_turns) {
    for (auto slot = slots_->begin(); slot != slots_->end() && !stopped_;) {
      auto mine = node_.turns().take({*slot}, wait);
      if (!mine) {
        ++slot;
        continue;
      }
      begin_slot(*slot, std::move(mine));
      slot = slots_->erase(slot);
    }
  }
  leave();
}

// Throws before any of the slot's creations has begun, or not at all.
void port_creations::begin_slot(uint32_t number, slot_turns::turn mine) {
  const auto &slots = node_.node().slots;
  const auto slot = std::find_if(slots.begin(), slots.end(),
                                 [number](const auto &one) { return one.number == number; });
  if (slot == slots.end()) return;
  const auto all = work_of(*slot, std::move(mine));
  left_ += all.size();
  for (const auto &one : all) {
    if (one->lane != creation_plan::in_order) post(one);
  }
  for (const auto &one : all) {
    if (one->lane == creation_plan::in_order) post_in_order(one);
  }
}

std::vector<std::shared_ptr<port_creations::work>> port_creations::work_of(
    const slot_description &slot, slot_turns::turn mine) {
  const auto turn = std::make_shared<slot_turns::turn>(std::move(mine));
  slot_description opened{slot.number, {}};
  for (const auto &instance : slot.instances) {
    if (CERR_IS_OK(open_when_empty(node_, slot.number, instance))) {
      opened.instances.push_back(instance);
    } else {
      good_ = false;
    }
  }
  // A line tells that there is a module, and nothing of whether it answers.
  const auto answers = [this](const port_description &port) {
    const auto module = node_.platform().modules().status(port.rsip);
    const auto glimpse = node_.platform().modules().glimpse(port.rsip);
    return module && port.module.presence.empty() && module->faults == lum_linux::fault_script() &&
           glimpse.known && glimpse.present && !glimpse.busy && !glimpse.failed_last;
  };
  std::vector<std::shared_ptr<work>> all;
  for (const creation &planned : plan_.of(opened, answers)) {
    auto one = std::make_shared<work>();
    one->slot = slot.number;
    one->instance = planned.instance;
    one->lane = planned.lane;
    one->ports = props_of(planned.ports);
    one->turn = turn;
    all.push_back(std::move(one));
  }
  return all;
}

// Where the system gives no thread for it, it is created here after a while.
void port_creations::post(const std::shared_ptr<work> &one) noexcept {
  for (unsigned tried = 0; !stopped_; ++tried) {
    auto verdict = lane_verdict::no_thread;
    try {
      verdict = lanes_.post(one->lane, [this, one] { run(*one); });
    } catch (const std::bad_alloc &) {
      // As without a thread.
    }
    if (verdict == lane_verdict::taken) return;
    if (tried == tries_for_a_thread) return run(*one);
    std::this_thread::sleep_for(until_tried_again);
  }
}

// One that turns out not to answer is left behind on its lane.
void port_creations::post_in_order(const std::shared_ptr<work> &one) noexcept {
  one->lane = lane_in_order_;
  post(one);
  std::unique_lock held(mutex_);
  if (one_ended_.wait_for(held, patience_in_order, [&one] { return one->has_ended; })) return;
  lane_in_order_ = plan_.another_lane();
}

// Without memory for what this process needs for it, a port is created a little later.
void port_creations::run(work &one) noexcept {
  for (bool is_done = false; !is_done && !stopped_;) {
    try {
      if (!CERR_IS_OK(create_listed(node_, one.slot, one.instance, one.ports))) good_ = false;
      is_done = true;
    } catch (const std::exception &) {
      std::this_thread::sleep_for(until_tried_again);
    }
  }
  one.turn.reset();
  {
    const std::lock_guard held(mutex_);
    one.has_ended = true;
  }
  one_ended_.notify_all();
  leave();
}

void port_creations::leave() noexcept {
  if (--left_ != 0) return;
  ended_ = true;
  if (good_) return;
  try {
    say("the node is not complete; the API shows what there is");
  } catch (const std::exception &) {
    // The API shows it all the same.
  }
}

void port_creations::stop() {
  stopped_ = true;
  lanes_.stop();
}

}  // namespace lumd
