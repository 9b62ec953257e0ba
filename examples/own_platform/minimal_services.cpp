// Every service that liblum needs, at its least, in one file: start with it and put your platform's
// own in the place of one after the other. Settings are kept as files in the folder that LUM_STORE
// names, "store" unless set. The entity agent, which liblum can do without, is left out.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bounded_copy.h"
#include "cerr.h"
#include "chkpt.h"
#include "ctrace.h"
#include "event_manager.h"
#include "imc.h"
#include "imca.h"
#include "pm_ui.h"
#include "ptah.h"
#include "ptd.h"
#include "tern.h"
#include "test_event.h"
#include "wavl.h"

// ---- Texts, log, deadlock monitor ----

const char *cerr_strerror(cerrno rc) { return std::strerror(static_cast<int>(rc)); }

cerrno strncpy_s(char *destination, size_t size, const char *source, size_t count) {
  if (destination == nullptr || size == 0) return EINVAL;
  destination[0] = '\0';
  if (source == nullptr || count >= size) return EINVAL;
  const size_t length = strnlen(source, count);
  std::memcpy(destination, source, length);
  destination[length] = '\0';
  return 0;
}

int32_t tern_gettid() { return static_cast<int32_t>(syscall(SYS_gettid)); }

void tern_syslog(int32_t, const char *format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
}

void ptd_set_mutex_block(pthread_mutex_t *, const char *, uint32_t) {}
void ptd_unset_mutex_block(pthread_mutex_t *) {}

// ---- Traces: errors go to standard error, the rest nowhere ----

static ctrace_handle error_channel;
static ctrace_handle opened_channels;

cerrno ctrace_open_internal(ctrace_handle *handle, const char *name, uint32_t, uint32_t,
                            const char *, const char *, uint32_t) {
  *handle = ++opened_channels;
  if (std::strcmp(name, "lum_error") == 0) error_channel = *handle;
  return 0;
}

cerrno ctrace_enable_configuration(ctrace_handle, void *) { return 0; }
void ctrace_set_process_name(const char *) {}

cerrno ctrace_internal(ctrace_handle handle, uint32_t, uint32_t, uint32_t, const char *,
                       const char *format, ...) {
  if (handle == 0 || handle != error_channel) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  return 0;
}

void ctrace_dump(ctrace_handle) {}
void ctrace_close(ctrace_handle) {}

// ---- Names and node identifiers: the fields are plain numbers here ----

cerrno imc_ifname_parse(const char *ifname, uint32_t, imc_ifname_info *info) {
  errno = EINVAL;
  if (ifname == nullptr) return EINVAL;
  const int numbers = std::sscanf(ifname, "%31[A-Za-z]%u_%u_%u_%u_%u", info->type, &info->rack,
                                  &info->slot, &info->instance, &info->port, &info->sub_port);
  if (numbers < 5) return EINVAL;
  info->sub_port_valid = numbers == 6 ? 1 : 0;
  return 0;
}

cerrno nodeid_extract_slot_fields(uint32_t rack_field, uint32_t slot_field, uint32_t *rack_out,
                                  uint32_t *slot_out) {
  *rack_out = rack_field;
  *slot_out = slot_field;
  return 0;
}

void nodeid_inst_to_SPAid(uint32_t instance_field, uint32_t *instance_out) {
  *instance_out = instance_field;
}

// ---- Event manager: one handler, one queue, one thread ----

namespace {

class pulse_queue {
 public:
  uint32_t attach(event_async_handler handler) {
    handler_ = handler;
    std::thread([this] { run(); }).detach();
    return 1;
  }
  void send(event_manager manager, uint64_t value) {
    {
      const std::lock_guard hold(lock_);
      queue_.push_back({manager, value});
    }
    filled_.notify_one();
  }

 private:
  struct pulse {
    event_manager manager;
    uint64_t value;
  };
  void run() {
    for (;;) {
      std::unique_lock hold(lock_);
      filled_.wait(hold, [this] { return !queue_.empty(); });
      const pulse next = queue_.front();
      queue_.pop_front();
      hold.unlock();
      handler_(next.manager, 1, next.value);
    }
  }

  std::mutex lock_;
  std::condition_variable filled_;
  std::deque<pulse> queue_;
  event_async_handler handler_ = nullptr;
};
pulse_queue &pulses = *new pulse_queue;  // its thread never ends

}  // namespace

void *event_manager_levm_get(event_manager manager) { return reinterpret_cast<void *>(manager); }

uint32_t event_async_attach(event_manager, uint32_t, event_async_handler handler, uint32_t) {
  return pulses.attach(handler);
}

uint32_t event_send_async(event_manager manager, uint32_t, uint64_t value) {
  pulses.send(manager, value);
  return 0;
}

// ---- Checkpoints: a file for each record, named after its key ----

namespace {

namespace fs = std::filesystem;
std::mutex &checkpoints = *new std::mutex;

fs::path store() {
  const char *named = std::getenv("LUM_STORE");
  return named == nullptr ? "store" : named;
}

// An id is the key and a bit that keeps it from being 0.
constexpr uint64_t id_bit = uint64_t{1} << 32;
fs::path file_of(uint64_t id) { return store() / std::to_string(id & ~id_bit); }

bool synced(const fs::path &path, int flags, const void *bytes, uint32_t size) {
  const int file = open(path.c_str(), flags, 0600);
  if (file < 0) return false;
  const bool written = size == 0 || write(file, bytes, size) == static_cast<ssize_t>(size);
  const bool kept = fsync(file) == 0;
  return close(file) == 0 && written && kept;
}

// Written beside the record and put in its place, so that there is always a whole one; and the
// folder is on the disk too before the record counts as saved.
cerrno keep(uint64_t id, const void *bytes, uint32_t size) {
  const fs::path fresh = store() / "new";
  if (!synced(fresh, O_WRONLY | O_CREAT | O_TRUNC, bytes, size)) return EIO;
  if (std::rename(fresh.c_str(), file_of(id).c_str()) != 0) return EIO;
  return synced(store(), O_RDONLY | O_DIRECTORY, nullptr, 0) ? 0 : EIO;
}

cerrno copy_record(uint64_t id, void *buffer, uint32_t size) {
  std::error_code error;
  if (fs::file_size(file_of(id), error) != size || error) return ENOENT;
  const int file = open(file_of(id).c_str(), O_RDONLY);
  const bool copied = file >= 0 && read(file, buffer, size) == static_cast<ssize_t>(size);
  if (file >= 0) close(file);
  return copied ? 0 : EIO;
}

using walk = std::deque<uint64_t>;  // the ids that are still to come

}  // namespace

void chkpt_appdesc_init(chkpt_appdesc *descriptor) { *descriptor = {}; }
void chkpt_tbldesc_init(chkpt_tbldesc *descriptor) { *descriptor = {}; }
cerrno chkpt_init(uint32_t, const chkpt_appdesc *) { return 0; }

cerrno chkpt_register(const chkpt_tbldesc *, uint32_t, uint32_t *restart, uint64_t *table) {
  std::error_code error;
  const bool found = !fs::create_directory(store(), error);
  if (error) return EIO;
  *restart = found ? 1 : 0;
  *table = 1;
  return 0;
}

cerrno chkpt_mapkey(uint64_t, uint32_t key, uint64_t *id, uint32_t) {
  const std::lock_guard hold(checkpoints);
  std::error_code error;
  if (!fs::exists(file_of(key), error)) return ENOENT;
  *id = key | id_bit;
  return 0;
}

cerrno chkpt_create(uint64_t, uint32_t key, uint64_t *id) {
  const std::lock_guard hold(checkpoints);
  *id = key | id_bit;
  return keep(*id, nullptr, 0);
}

cerrno chkpt_get(uint64_t, uint64_t id, uint32_t, void *buffer, uint32_t *size) {
  const std::lock_guard hold(checkpoints);
  return copy_record(id, buffer, *size);
}

cerrno chkpt_save(uint64_t, uint64_t id, const void *record, uint32_t size) {
  const std::lock_guard hold(checkpoints);
  return keep(id, record, size);
}

cerrno chkpt_delete(uint64_t, uint64_t id) {
  const std::lock_guard hold(checkpoints);
  std::error_code error;
  if (!fs::remove(file_of(id), error)) return ENOENT;
  return synced(store(), O_RDONLY | O_DIRECTORY, nullptr, 0) ? 0 : EIO;
}

cerrno chkpt_iterate_start(uint64_t, uint64_t *iterator) {
  const std::lock_guard hold(checkpoints);
  auto *ids = new walk;
  std::error_code error;
  for (const fs::directory_entry &file : fs::directory_iterator(store(), error)) {
    char *end = nullptr;
    const std::string name = file.path().filename();
    const uint64_t key = std::strtoull(name.c_str(), &end, 10);
    if (*end == '\0' && file.file_size(error) > 0) ids->push_back(key | id_bit);
  }
  *iterator = reinterpret_cast<uintptr_t>(ids);
  return 0;
}

cerrno chkpt_iterate_next(uint64_t iterator, uint32_t, uint64_t *id, void *buffer, uint32_t *size) {
  const std::lock_guard hold(checkpoints);
  auto *ids = reinterpret_cast<walk *>(iterator);
  *id = 0;
  if (ids->empty()) return 0;
  *id = ids->front();
  ids->pop_front();
  return copy_record(*id, buffer, *size);
}

cerrno chkpt_iterate_end(uint64_t iterator) {
  delete reinterpret_cast<walk *>(iterator);
  return 0;
}

// ---- Performance monitoring, alarms, test events: alarms are kept, readings are not ----

namespace {
struct interface_stores {
  std::mutex lock;
  std::set<uint32_t> pm_ports;
  std::map<uint32_t, ptah_al_all> alarms;
};
interface_stores &stores = *new interface_stores;
}  // namespace

const void *pm_ui_db_search_node(uint32_t ifhandle) {
  const std::lock_guard hold(stores.lock);
  const auto found = stores.pm_ports.find(ifhandle);
  return found == stores.pm_ports.end() ? nullptr : &*found;
}

cerrno pm_ui_port_create(uint32_t, uint32_t ifhandle, const char *) {
  const std::lock_guard hold(stores.lock);
  stores.pm_ports.insert(ifhandle);
  return 0;
}

cerrno pm_ui_port_delete(uint32_t ifhandle) {
  const std::lock_guard hold(stores.lock);
  return stores.pm_ports.erase(ifhandle) == 1 ? 0 : ENOENT;
}

cerrno pm_ui_set_optics_prim(uint32_t, const pm_ui_optics_record *, uint32_t, uint32_t) {
  return 0;
}

cerrno ptah_al_port_create(uint32_t, uint32_t ifhandle, const char *, uint32_t, uint32_t,
                           uint64_t *handle) {
  const std::lock_guard hold(stores.lock);
  stores.alarms.try_emplace(ifhandle);
  *handle = ifhandle;
  return 0;
}

cerrno ptah_al_port_delete(uint32_t ifhandle) {
  const std::lock_guard hold(stores.lock);
  return stores.alarms.erase(ifhandle) == 1 ? 0 : ENOENT;
}

cerrno ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t) {
  const std::lock_guard hold(stores.lock);
  const auto found = stores.alarms.find(ifhandle);
  if (found == stores.alarms.end()) return ENOENT;
  found->second.bitmap = bitmap;
  return 0;
}

cerrno ptah_al_get_all_from_ptah(uint32_t ifhandle, ptah_al_all *all) {
  const std::lock_guard hold(stores.lock);
  const auto found = stores.alarms.find(ifhandle);
  if (found == stores.alarms.end()) return ENOENT;
  *all = found->second;
  return 0;
}

cerrno ptah_al_port_clear_stats(uint32_t) { return 0; }
cerrno ptah_al_send_bmap_counter(uint32_t) { return 0; }

cerrno test_event_init_tests_v2(const char *, uint32_t, uint64_t, const test_event_record *,
                                uint32_t) {
  return 0;
}
void test_event_close_tests(const char *) {}

// ---- The codec of create replies ----

cerrno wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *) {
  if (data == nullptr || size != sizeof decoded->ifhandle) return EINVAL;
  std::memcpy(&decoded->ifhandle, data, size);
  decoded->members = 1;
  return 0;
}

int wiredef_icpe_ext_intf_create_reply_data_have_required(
    const wiredef_icpe_ext_intf_create_reply_data *decoded) {
  return decoded->members != 0;
}

void wiredef_icpe_ext_intf_create_reply_data_free_ext(wiredef_icpe_ext_intf_create_reply_data *,
                                                      const wiredef_allocator *) {}

// ---- Trees: an ordered set of node addresses per index, all under one lock ----
//
// The comparators look at the keys inside the nodes, so a node's key must not change while the node
// is in the set.

namespace {

struct smaller_key {
  wavl_comparator compare;
  bool operator()(const void *first, const void *second) const {
    return compare(first, second) == 0;
  }
};
using index_set = std::set<const void *, smaller_key>;

struct forest {
  std::mutex lock;
  std::vector<index_set> indices;

  // The node itself, not one of the same key.
  bool holds(uint32_t index, const void *node) const {
    const auto found = indices[index].find(node);
    return found != indices[index].end() && *found == node;
  }
  bool erase(uint32_t index, const void *node) {
    if (!holds(index, node)) return false;
    indices[index].erase(node);
    return true;
  }
};

forest *forest_of(const wavl_tree *tree) { return static_cast<forest *>(tree->implementation); }

void *node_at(const index_set &index, index_set::const_iterator place) {
  return place == index.end() ? nullptr : const_cast<void *>(*place);
}

// Runs `action` on the forest with its lock held; `otherwise` where there is no such index.
template <typename Result, typename Action>
Result locked(const wavl_tree *tree, uint32_t index, Result otherwise, Action action) {
  forest *trees = forest_of(tree);
  if (trees == nullptr || index >= trees->indices.size()) return otherwise;
  const std::lock_guard hold(trees->lock);
  return action(*trees);
}

}  // namespace

// The links inside the nodes are not needed here.
cerrno wavl_init(wavl_tree *tree, uint32_t indices, uint32_t link_offset, ...) {
  auto *trees = new forest;
  std::va_list comparators;
  va_start(comparators, link_offset);
  for (uint32_t i = 0; i < indices; ++i) {
    trees->indices.emplace_back(smaller_key{va_arg(comparators, wavl_comparator)});
  }
  va_end(comparators);
  tree->implementation = trees;
  return 0;
}

int wavl_running(const wavl_tree *tree) { return tree->implementation != nullptr; }

int wavl_insert_thread(wavl_tree *tree, uint32_t index, void *node) {
  return locked(tree, index, 0,
                [&](forest &trees) -> int { return trees.indices[index].insert(node).second; });
}

int wavl_delete_thread(wavl_tree *tree, uint32_t index, void *node) {
  return locked(tree, index, 0, [&](forest &trees) -> int { return trees.erase(index, node); });
}

int wavl_delete(wavl_tree *tree, void *node) {
  return locked(tree, 0, 0, [&](forest &trees) {
    int erased = 0;
    for (uint32_t i = 0; i < trees.indices.size(); ++i) erased |= trees.erase(i, node);
    return erased;
  });
}

void *wavl_search(wavl_tree *tree, const void *key_node, uint32_t index) {
  return locked<void *>(tree, index, nullptr, [&](forest &trees) {
    return node_at(trees.indices[index], trees.indices[index].find(key_node));
  });
}

void *wavl_get_first(wavl_tree *tree, uint32_t index) {
  return locked<void *>(tree, index, nullptr, [&](forest &trees) {
    return node_at(trees.indices[index], trees.indices[index].begin());
  });
}

// By key, so that a walk goes on from a node that was taken out meanwhile.
void *wavl_get_next(wavl_tree *tree, const void *node, uint32_t index) {
  return locked<void *>(tree, index, nullptr, [&](forest &trees) {
    return node_at(trees.indices[index], trees.indices[index].upper_bound(node));
  });
}

uint32_t wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context) {
  uint32_t visited = 0;
  for (void *node = wavl_get_first(tree, index); node != nullptr;
       node = wavl_get_next(tree, node, index)) {
    ++visited;
    if (callback(node, context) != 0) break;
  }
  return visited;
}
