#include "module_watch.h"

#include <cerrno>
#include <ctime>

#include "seams.h"

namespace stress {
namespace {

using namespace std::chrono_literals;

// What the library reads of a module in one piece.
constexpr int32_t lower_page_size = 128;
constexpr int32_t status_chunk_size = 23;
constexpr int32_t setting_size = 2;

lum_platform_cbs platform_callbacks;
std::atomic<module_watch *> the_watch{nullptr};

// The calls that name each port, as they stood when the thread last began something.
struct thread_notes {
  std::vector<port_moment> last_visit;
  std::vector<port_moment> before_last_visit;
  bool polled_well = false;  // in this visit
  bool must_hold = false;    // the visit before was polled well, so this one is made as ever
  std::vector<port_moment> settings;
};
thread_local thread_notes notes;

uint32_t rsip_at(uint32_t slot, uint32_t instance, uint32_t port) {
  return slot << 16 | instance << 8 | port;
}

// The thread of a transfer is inside a reader section of the library, which keeps the node.
lum_port_data *find_port(uint32_t rsip) {
  lum_port_node_info *node = lum_ports_db_find_entry(rsip);
  return node == nullptr ? nullptr : &node->data;
}

bool is_kept(lum_port_data &port) { return std::atomic_ref(port.mutex_kept_by).load() != 0; }

// An error-checking mutex tells its owner before it looks at the time.
bool holds_mutex(lum_port_data &port) {
  constexpr timespec long_ago = {};
  const int rc = pthread_mutex_timedlock(&port.port_mutex, &long_ago);
  if (rc == 0) pthread_mutex_unlock(&port.port_mutex);
  return rc == EDEADLK;
}

std::string named(uint32_t rsip) {
  return "port " + std::to_string(rsip >> 16) + "/" + std::to_string(rsip & 0xFF);
}

cerrno fw_upgrade_status(uint32_t rsip, uint32_t *status) {
  if (module_watch *watch = the_watch.load()) watch->visited();
  return platform_callbacks.fw_upgrade_status(rsip, status);
}

cerrno read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                  int32_t length, uint8_t *buffer) {
  module_watch *watch = the_watch.load();
  const bool first_of_poll = length == lower_page_size && page == 0 && offset == 0;
  if (watch != nullptr && first_of_poll) watch->poll_begun(rsip_at(slot, instance, port));
  if (watch != nullptr && length == setting_size) {
    watch->setting_begun(rsip_at(slot, instance, port));
  }
  const cerrno rc =
      platform_callbacks.i2c_read_block(slot, instance, port, page, offset, length, buffer);
  if (watch != nullptr && length == status_chunk_size) watch->poll_ended(rc == 0);
  return rc;
}

cerrno write_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                  uint8_t value) {
  if (module_watch *watch = the_watch.load()) watch->setting_begun(rsip_at(slot, instance, port));
  return platform_callbacks.i2c_write_byte(slot, instance, port, page, offset, value);
}

}  // namespace

lum_platform_cbs watched_modules(const lum_platform_cbs &platform) {
  platform_callbacks = platform;
  lum_platform_cbs callbacks = platform;
  callbacks.fw_upgrade_status = fw_upgrade_status;
  callbacks.i2c_read_block = read_block;
  callbacks.i2c_write_byte = write_byte;
  return callbacks;
}

module_watch::module_watch(node &node, findings &found) : node_(node), found_(found) {
  the_watch = this;
}

module_watch::~module_watch() {
  the_watch = nullptr;
  poll_on_demand();
  run_polling_cycle(60s);
}

void module_watch::settings_asked_for() const { notes.settings = moments(); }

transfer_counts module_watch::counts() const {
  return {polls_.load(), held_polls_.load(), settings_.load()};
}

// The polling thread asks for a port's upgrade status when it comes to it. It has found the port's
// node after it came to the one before.
void module_watch::visited() {
  notes.before_last_visit = std::move(notes.last_visit);
  notes.last_visit = moments();
  notes.must_hold = notes.polled_well;
  notes.polled_well = false;
}

// A creation since the node was found may have put another node in its place, and a deletion may
// have freed or taken the mutex; without one what is seen now has been so all the time.
void module_watch::poll_begun(uint32_t rsip) {
  if (notes.before_last_visit.empty()) return;
  lum_port_data *port = find_port(rsip);
  if (port == nullptr) return;
  const bool kept = is_kept(*port);
  const bool held = !notes.must_hold || holds_mutex(*port);
  const std::size_t index = node_.index_of(rsip);
  const port_calls &calls = node_.calls_of(index);
  const port_moment &then = notes.before_last_visit[index];
  if (!calls.creations.none(then.creations)) return;
  polls_.fetch_add(1);
  held_polls_.fetch_add(notes.must_hold ? 1 : 0);
  if (kept && calls.deletions.none(then.deletions)) {
    found_.add(named(rsip) + " is polled while its deletion keeps its mutex");
  }
  if (!held) found_.add(named(rsip) + " is polled by a thread that does not hold its mutex");
}

void module_watch::poll_ended(bool successfully) { notes.polled_well = successfully; }

// Only who holds the mutex can have a deletion keep it, so nothing that others do matters.
void module_watch::setting_begun(uint32_t rsip) {
  if (notes.settings.empty()) return found_.add(named(rsip) + " is set and nobody asked for it");
  lum_port_data *port = find_port(rsip);
  if (port == nullptr) return;
  const bool held = holds_mutex(*port);
  const bool kept = is_kept(*port);
  const std::size_t index = node_.index_of(rsip);
  if (!node_.calls_of(index).creations.none(notes.settings[index].creations)) return;
  settings_.fetch_add(1);
  if (kept) found_.add(named(rsip) + " is set while its deletion keeps its mutex");
  if (!held) found_.add(named(rsip) + " is set by a thread that does not hold its mutex");
}

std::vector<port_moment> module_watch::moments() const {
  std::vector<port_moment> all;
  all.reserve(node_.ports().size());
  for (std::size_t i = 0; i < node_.ports().size(); ++i) {
    all.push_back(moment_of(node_.calls_of(i)));
  }
  return all;
}

}  // namespace stress
