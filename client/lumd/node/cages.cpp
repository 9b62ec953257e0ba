#include "node/cages.h"

#include <chrono>

#include "lum.h"
#include "node/log.h"

namespace lumd {

namespace {

using clock = std::chrono::steady_clock;

// A module that never gives its whole identity is let be after so many attempts.
constexpr unsigned most_attempts = 5;
constexpr std::chrono::seconds between_attempts(2);

bool is_read_by_halves(const cage &seen) {
  return seen.incomplete && seen.attempts < most_attempts;
}

// What could not be read is read again once the module answers.
bool is_to_be_read_again(const cage &seen, const lum_linux::module_glimpse &module) {
  return is_read_by_halves(seen) && !module.failed_last &&
         clock::now() - seen.begun > between_attempts;
}

}  // namespace

cage_watch::cage_watch(const lum_linux::node_description &node, lum_linux::modules &modules)
    : modules_(modules), readers_("lumd-identity", {node.ports().size() + 1, 1}) {
  for (const lum_linux::port_description *port : node.ports()) begin(port->rsip);
}

void cage_watch::begin(uint32_t rsip) {
  const auto module = modules_.glimpse(rsip);
  std::lock_guard lock(mutex_);
  cage &now = cages_[rsip];
  now.begun = clock::now();
  now.insertion = module.insertion;
  now.failed_transfers = module.failed;
}

void cage_watch::renew(uint32_t rsip) {
  const auto module = modules_.glimpse(rsip);
  std::lock_guard lock(mutex_);
  cage &now = cages_[rsip];
  now.begun = clock::now();
  now.incomplete = module.failed != now.failed_transfers;
}

void cage_watch::forget_all() {
  std::lock_guard lock(mutex_);
  for (auto &[rsip, one] : cages_) one.begun = clock::time_point::max();
}

void cage_watch::renew_all() {
  std::lock_guard lock(mutex_);
  for (auto &[rsip, one] : cages_) one.begun = clock::now();
}

bool cage_watch::compare(const lum_linux::node_description &node,
                         const std::vector<port_words> &words) {
  bool is_under_way = false;
  for (const lum_linux::port_description *port : node.ports()) {
    const port_words *known = find_words(words, port->rsip);
    is_under_way = look_at(*port, known ? *known : port_words()) || is_under_way;
  }
  return is_under_way;
}

cage cage_watch::seen(uint32_t rsip) const {
  std::lock_guard lock(mutex_);
  const auto found = cages_.find(rsip);
  cage result = found == cages_.end() ? cage() : found->second;
  result.being_read = readers_.in_lane(rsip) > 0;
  return result;
}

std::chrono::steady_clock::time_point cage_watch::begun(uint32_t rsip) const {
  std::lock_guard lock(mutex_);
  const auto found = cages_.find(rsip);
  return found == cages_.end() ? clock::time_point() : found->second.begun;
}

bool cage_watch::look_at(const lum_linux::port_description &port, const port_words &words) {
  const uint32_t rsip = port.rsip;
  const auto module = modules_.glimpse(rsip);
  tell_way(port, module.way);
  if (!module.known || !words.facts.created || words.facts.going) return false;

  std::unique_lock lock(mutex_);
  const cage before = cages_[rsip];
  lock.unlock();
  const bool is_another = module.present && module.insertion != before.insertion;
  // The library takes a cage for filled each time its controllers are confirmed, so what it
  // believes is compared, not only what has changed in the cage.
  const bool believed = words.facts.inserted;
  const bool has_gone = believed && (!module.present || is_another);
  const bool has_come = module.present && (!believed || is_another);
  const bool to_be_read = has_come || (module.present && is_to_be_read_again(before, module));
  if (!has_gone && !to_be_read) return module.present && is_read_by_halves(before);
  if (readers_.in_lane(rsip) > 0) return true;

  // Whoever was reading it may have ended since the words were gathered.
  const auto copy = copy_port(rsip);
  if (!copy || (copy->data.inserted != 0) != believed) return true;
  tell_library(rsip, has_gone, to_be_read);
  lock.lock();
  cage &now = cages_[rsip];
  now.begun = clock::now();
  if (to_be_read) now.attempts = has_come ? 1 : now.attempts + 1;
  return true;
}

void cage_watch::tell_way(const lum_linux::port_description &port, std::string_view way) {
  if (way.empty() || ways_[port.rsip] == way) return;
  ways_[port.rsip] = way;
  say("port {}: {} is read by {}", port.name, port.module.i2c_bus.native(), way);
}

// What cannot be told now is told after the next look: the library's belief is compared again.
void cage_watch::tell_library(uint32_t rsip, bool has_gone, bool to_be_read) {
  readers_.post(rsip, [this, rsip, has_gone, to_be_read] {
    if (has_gone) lum_update_vendor_info(rsip, 0);
    if (!to_be_read) return;
    begin(rsip);
    lum_update_vendor_info(rsip, 1);
    renew(rsip);
  });
}

}  // namespace lumd
