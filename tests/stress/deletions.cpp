#include "deletions.h"

#include <cerrno>

namespace stress {
namespace {

using std::chrono::microseconds;

// How many mutexes one thread may keep; ThreadSanitizer follows no more than 64 of a thread, some
// of which are others.
constexpr int most_kept_by_a_thread = 60;

constexpr cerrno try_again = 11;

const port_place &any_port(const node &node, worker &self) {
  return node.ports()[below(self.random, static_cast<uint32_t>(node.ports().size()))];
}

void rest(worker &self, uint32_t longest) {
  self.doing("pausing between deletions");
  std::this_thread::sleep_for(microseconds(below(self.random, longest)));
}

std::string named(const port_place &port) {
  return "port " + std::to_string(port.slot) + "/" + std::to_string(port.port);
}

}  // namespace

void deletions::from_threads_that_end(worker &self) {
  const port_place &port = any_port(node_, self);
  for (uint32_t times = 1 + below(self.random, 4); times > 0; --times) {
    delete_once(port, self);
    bring_back(port, self);
    rest(self, 5000);
  }
}

void deletions::from_one_thread(worker &self) {
  std::thread([&] {
    for (int kept = 0; kept < most_kept_by_a_thread; ++kept) {
      const port_place &port = any_port(node_, self);
      for (uint32_t times = 1 + below(self.random, 3); times > 0 && kept < most_kept_by_a_thread;
           --times, ++kept) {
        self.doing("deleting from one thread");
        node_.delete_ports_here(port.slot, {port.port});
        rest(self, 2000);
      }
      bring_back(port, self);
      rest(self, 20000);
    }
  }).join();
}

void deletions::try_mutex(worker &self) {
  const port_place &port = any_port(node_, self);
  self.doing("trying a mutex");
  const port_calls &calls = node_.calls_of(node_.index_of(port.rsip));
  const std::unique_lock no_creation(node_.creation_in(port.slot), std::try_to_lock);
  const uint64_t then = calls.deletions.now();
  const look seen = no_creation ? look_at(port) : look();
  if (seen.kept && calls.deletions.none(then)) {
    while_kept_.fetch_add(1);
    if (seen.rc != EBUSY) found_.add(named(port) + ": its mutex is kept and can be had");
  }
  rest(self, 200);
}

look_counts deletions::counts() const { return {while_kept_.load(), after_its_end_.load()}; }

// When no other call has named the port, its mutex is kept afterwards if it is still there: by this
// deletion, or by an earlier one. In half of the cases it may meet the port's creation.
void deletions::delete_once(const port_place &port, worker &self) {
  self.doing("deleting from a thread that ends");
  std::unique_lock no_creation(node_.creation_in(port.slot), std::defer_lock);
  if (below(self.random, 2) == 0) no_creation.lock();
  switch (below(self.random, 4)) {
    case 0:
      break;
    case 1:
      node_.im().drop_next(1);
      break;
    default:
      node_.im().refuse_next(1, try_again);
  }
  const port_calls &calls = node_.calls_of(node_.index_of(port.rsip));
  const port_moment then = moment_of(calls);
  node_.delete_ports(port.slot, {port.port});
  if (!no_creation && !no_creation.try_lock()) return;
  const look seen = look_at(port);
  if (!seen.found || !calls.deletions.only(1, then.deletions) ||
      !calls.creations.none(then.creations)) {
    return;
  }
  after_its_end_.fetch_add(1);
  if (!seen.kept) found_.add(named(port) + ": its deletion has not kept its mutex");
  if (!seen.asked) found_.add(named(port) + ": its deletion is forgotten");
  if (seen.rc != EBUSY) found_.add(named(port) + ": its mutex can be had after its deletion");
}

// An insertion, and a replay whose answer makes it polled again; sometimes not at all.
void deletions::bring_back(const port_place &port, worker &self) {
  if (below(self.random, 4) == 0) return;
  self.doing("bringing a port back");
  lum_update_vendor_info(port.rsip, 1);
  if (below(self.random, 4) == 0) lum_replay_controllers();
}

// The walk is a reader section of the library, which keeps the node.
deletions::look deletions::look_at(const port_place &port) const {
  struct search {
    uint32_t rsip;
    look seen;
  } wanted = {port.rsip, {}};
  lum_ports_db_walk_via_rsip(
      [](void *entry, void *context) -> int32_t {
        auto &node = *static_cast<lum_port_node_info *>(entry);
        auto &looking_for = *static_cast<search *>(context);
        if (node.rsip != looking_for.rsip) return 0;
        lum_port_data &data = node.data;
        look &seen = looking_for.seen;
        seen.found = true;
        seen.kept = std::atomic_ref(data.mutex_kept_by).load() != 0;
        seen.asked = word(data.deletion_asked) != 0;
        seen.rc = pthread_mutex_trylock(&data.port_mutex);
        if (seen.rc == 0) pthread_mutex_unlock(&data.port_mutex);
        return 0;
      },
      &wanted);
  return wanted.seen;
}

}  // namespace stress
