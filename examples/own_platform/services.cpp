// The small services: texts, log, traces, names, pulses, and stores that keep next to nothing.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "bounded_copy.h"
#include "cerr.h"
#include "chkpt.h"
#include "ctrace.h"
#include "event_manager.h"
#include "imc.h"
#include "pm_ui.h"
#include "ptah.h"
#include "ptd.h"
#include "tern.h"
#include "test_event.h"

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

// ---- Checkpoints: kept in memory, so every start is a cold one. Put your storage here. ----

namespace {

struct checkpoint_table {
  std::mutex lock;
  std::map<uint64_t, std::vector<unsigned char>> records;  // by id, which is the key + 1
};
checkpoint_table &checkpoints = *new checkpoint_table;

cerrno copy_record(uint64_t id, void *buffer, uint32_t *size) {
  const auto found = checkpoints.records.find(id);
  if (found == checkpoints.records.end() || found->second.size() != *size) return ENOENT;
  std::memcpy(buffer, found->second.data(), *size);
  return 0;
}

}  // namespace

void chkpt_appdesc_init(chkpt_appdesc *descriptor) { *descriptor = {}; }
void chkpt_tbldesc_init(chkpt_tbldesc *descriptor) { *descriptor = {}; }
cerrno chkpt_init(uint32_t, const chkpt_appdesc *) { return 0; }

cerrno chkpt_register(const chkpt_tbldesc *, uint32_t, uint32_t *restart, uint64_t *table) {
  *restart = 0;
  *table = 1;
  return 0;
}

cerrno chkpt_mapkey(uint64_t, uint32_t key, uint64_t *id, uint32_t) {
  const std::lock_guard hold(checkpoints.lock);
  if (checkpoints.records.count(uint64_t{key} + 1) == 0) return ENOENT;
  *id = uint64_t{key} + 1;
  return 0;
}

cerrno chkpt_create(uint64_t, uint32_t key, uint64_t *id) {
  const std::lock_guard hold(checkpoints.lock);
  *id = uint64_t{key} + 1;
  checkpoints.records[*id];
  return 0;
}

cerrno chkpt_get(uint64_t, uint64_t id, uint32_t, void *buffer, uint32_t *size) {
  const std::lock_guard hold(checkpoints.lock);
  return copy_record(id, buffer, size);
}

cerrno chkpt_save(uint64_t, uint64_t id, const void *record, uint32_t size) {
  const auto *bytes = static_cast<const unsigned char *>(record);
  const std::lock_guard hold(checkpoints.lock);
  checkpoints.records[id].assign(bytes, bytes + size);
  return 0;
}

cerrno chkpt_delete(uint64_t, uint64_t id) {
  const std::lock_guard hold(checkpoints.lock);
  return checkpoints.records.erase(id) == 1 ? 0 : ENOENT;
}

// Nothing is there from an earlier start, so the walk ends before its first record.
cerrno chkpt_iterate_start(uint64_t, uint64_t *iterator) {
  *iterator = 1;
  return 0;
}
cerrno chkpt_iterate_next(uint64_t, uint32_t, uint64_t *id, void *, uint32_t *) {
  *id = 0;
  return 0;
}
cerrno chkpt_iterate_end(uint64_t) { return 0; }

// ---- Performance monitoring, alarms, test events: ports are remembered, values are not ----

namespace {
struct pm_ports {
  std::mutex lock;
  std::set<uint32_t> ifhandles;
};
pm_ports &pm = *new pm_ports;
}  // namespace

const void *pm_ui_db_search_node(uint32_t ifhandle) {
  const std::lock_guard hold(pm.lock);
  const auto found = pm.ifhandles.find(ifhandle);
  return found == pm.ifhandles.end() ? nullptr : &*found;
}

cerrno pm_ui_port_create(uint32_t, uint32_t ifhandle, const char *) {
  const std::lock_guard hold(pm.lock);
  pm.ifhandles.insert(ifhandle);
  return 0;
}

cerrno pm_ui_port_delete(uint32_t ifhandle) {
  const std::lock_guard hold(pm.lock);
  return pm.ifhandles.erase(ifhandle) == 1 ? 0 : ENOENT;
}

cerrno pm_ui_set_optics_prim(uint32_t, const pm_ui_optics_record *, uint32_t, uint32_t) {
  return 0;
}

cerrno ptah_al_port_create(uint32_t, uint32_t, const char *, uint32_t, uint32_t, uint64_t *handle) {
  *handle = 1;
  return 0;
}
cerrno ptah_al_port_delete(uint32_t) { return 0; }
cerrno ptah_al_port_clear_stats(uint32_t) { return 0; }
cerrno ptah_al_store_bmap(uint32_t, uint64_t, uint32_t) { return 0; }
cerrno ptah_al_send_bmap_counter(uint32_t) { return 0; }
cerrno ptah_al_get_all_from_ptah(uint32_t, ptah_al_all *) { return ENOENT; }

cerrno test_event_init_tests_v2(const char *, uint32_t, uint64_t, const test_event_record *,
                                uint32_t) {
  return 0;
}
void test_event_close_tests(const char *) {}
