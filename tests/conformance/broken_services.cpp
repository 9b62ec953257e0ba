// Services with mistakes that are easily made. The linker leads the conformance test's calls here.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "bounded_copy.h"
#include "broken.h"
#include "ctrace.h"
#include "event_manager.h"
#include "imc.h"
#include "ptah.h"
#include "wavl.h"

namespace {
std::recursive_mutex walk_lock;
event_async_handler attached = nullptr;
std::map<uint64_t, std::vector<uint8_t>> unsaved;
}  // namespace

extern "C" {

cerrno __real_strncpy_s(char *destination, size_t size, const char *source, size_t count);
const char *__real_cerr_strerror(cerrno rc);
cerrno __real_imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info);
void *__real_wavl_get_next(wavl_tree *tree, const void *node, uint32_t index);
uint32_t __real_wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context);
void *__real_wavl_search(wavl_tree *tree, const void *key_node, uint32_t index);
uint32_t __real_event_async_attach(event_manager manager, uint32_t priority,
                                   event_async_handler handler, uint32_t flags);
uint32_t __real_event_send_async(event_manager manager, uint32_t pulse, uint64_t value);
cerrno __real_chkpt_save(uint64_t table, uint64_t id, const void *record, uint32_t size);
cerrno __real_chkpt_get(uint64_t table, uint64_t id, uint32_t flags, void *buffer, uint32_t *size);
cerrno __real_ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t valid);

cerrno __wrap_strncpy_s(char *destination, size_t size, const char *source, size_t count) {
  if (!broken("copies_without_end") || destination == nullptr || source == nullptr) {
    return __real_strncpy_s(destination, size, source, count);
  }
  std::memcpy(destination, source, strnlen(source, count));
  return 0;
}

const char *__wrap_cerr_strerror(cerrno rc) {
  return broken("no_text_for_unknown_results") && rc > 133 ? nullptr : __real_cerr_strerror(rc);
}

cerrno __wrap_imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info) {
  const cerrno rc = __real_imc_ifname_parse(ifname, flags, info);
  if (broken("every_name_has_a_sub_port")) info->sub_port_valid = 1;
  return rc;
}

cerrno __wrap_ctrace_internal(ctrace_handle handle, uint32_t, uint32_t, uint32_t, const char *,
                              const char *, ...) {
  if (broken("lines_need_an_open_channel") && handle == 0) std::abort();
  return 0;
}

void *__wrap_wavl_get_next(wavl_tree *tree, const void *node, uint32_t index) {
  const bool removed = __real_wavl_search(tree, node, index) != node;
  if (broken("walks_end_at_removed_nodes") && removed) return nullptr;
  return __real_wavl_get_next(tree, node, index);
}

uint32_t __wrap_wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context) {
  std::unique_lock hold(walk_lock, std::defer_lock);
  if (broken("walks_hold_their_lock")) hold.lock();
  return __real_wavl_walk(tree, index, callback, context);
}

void *__wrap_wavl_search(wavl_tree *tree, const void *key_node, uint32_t index) {
  const std::lock_guard hold(walk_lock);
  return __real_wavl_search(tree, key_node, index);
}

uint32_t __wrap_event_async_attach(event_manager manager, uint32_t priority,
                                   event_async_handler handler, uint32_t flags) {
  attached = handler;
  return __real_event_async_attach(manager, priority, handler, flags);
}

uint32_t __wrap_event_send_async(event_manager manager, uint32_t pulse, uint64_t value) {
  if (!broken("pulses_run_where_they_are_sent")) {
    return __real_event_send_async(manager, pulse, value);
  }
  attached(manager, pulse, value);
  return 0;
}

cerrno __wrap_chkpt_save(uint64_t table, uint64_t id, const void *record, uint32_t size) {
  if (!broken("settings_stay_in_memory")) return __real_chkpt_save(table, id, record, size);
  const auto *bytes = static_cast<const uint8_t *>(record);
  unsaved[id].assign(bytes, bytes + size);
  return 0;
}

cerrno __wrap_chkpt_get(uint64_t table, uint64_t id, uint32_t flags, void *buffer, uint32_t *size) {
  const cerrno rc = __real_chkpt_get(table, id, flags, buffer, size);
  if (broken("records_of_any_size_are_given")) return 0;
  return rc;
}

cerrno __wrap_ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t valid) {
  return __real_ptah_al_store_bmap(
      broken("alarms_go_to_sub_port_0") ? (ifhandle - 1) | 1 : ifhandle, bitmap, valid);
}
}
