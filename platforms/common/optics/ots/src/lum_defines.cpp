// The slot table: which ports each instance of a slot carries.
#include <mutex>

#include "base/memory.h"
#include "base/quiet_lock.h"
#include "base/trace.h"

using namespace lum;

static constexpr char trace_area[] = "lum_defines";

namespace {

// One instance of a slot. The two counts are read as 16-bit numbers.
struct lum_instance_props {
  std::uint32_t used;
  std::uint32_t capacity;
  std::uint32_t in_use_count;
  lum_port_props *entries;

  std::uint16_t size() const {
    return entries == nullptr ? 0 : static_cast<std::uint16_t>(capacity);
  }
};

// The client's threads and the interface manager's completions both come here.
quiet_lock table_lock;
lum_instance_props table[LUM_MAX_SLOTS][LUM_MAX_INSTANCES];

// Null for a place that the table does not have.
lum_instance_props *instance_at(std::uint32_t slot, std::uint32_t instance) {
  if (slot >= LUM_MAX_SLOTS || instance >= LUM_MAX_INSTANCES) return nullptr;
  return &table[slot][instance];
}

lum_instance_props *used_instance_at(std::uint32_t slot, std::uint32_t instance) {
  lum_instance_props *props = instance_at(slot, instance);
  return props != nullptr && props->used != 0 ? props : nullptr;
}

std::uint16_t index_of(const lum_port_props &entry) {
  return static_cast<std::uint16_t>(entry.port_index);
}

lum_port_props *entry_with_handle(std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t port_handle) {
  lum_instance_props *props = used_instance_at(slot, instance);
  if (props == nullptr) return nullptr;
  for (std::uint16_t i = 0; i < props->size(); ++i) {
    if (props->entries[i].port_handle == port_handle) return &props->entries[i];
  }
  return nullptr;
}

lum_port_props *free_entry(lum_instance_props &props) {
  for (std::uint16_t i = 0; i < props.size(); ++i) {
    if (props.entries[i].in_use == 0) return &props.entries[i];
  }
  return nullptr;
}

// Returns whether there was a free entry.
bool fill_entry(lum_instance_props &props, const lum_port_props &record) {
  std::lock_guard lock(table_lock);
  lum_port_props *entry = free_entry(props);
  if (entry == nullptr) return false;
  entry->rsip = record.rsip;
  entry->port_index = record.port_index;
  entry->port_handle = record.port_handle;
  entry->in_use = 1;
  ++props.in_use_count;
  return true;
}

}  // namespace

lum_port_props *lum_slot_properties_init(std::uint32_t slot, std::uint32_t instance,
                                         const lum_slot_props *record) {
  lum_instance_props *props = instance_at(slot, instance);
  if (props == nullptr) return nullptr;
  const auto capacity = static_cast<std::uint16_t>(record->capacity);
  c_array<lum_port_props> entries = zeroed_array<lum_port_props>(capacity);

  lum_port_props *array = entries.get();
  std::lock_guard lock(table_lock);
  const c_array<lum_port_props> replaced(props->entries);
  *props = {record->used, record->capacity, 0, entries.release()};
  return array;
}

// The entries' context cells stay with whoever holds them.
void lum_slot_properties_deinit(std::uint32_t slot, std::uint32_t instance) {
  std::lock_guard lock(table_lock);
  lum_instance_props *props = used_instance_at(slot, instance);
  if (props == nullptr) return;
  c_array<lum_port_props> entries(props->entries);
  *props = {};
}

void lum_port_properties_init(std::uint32_t slot, std::uint32_t instance, std::uint16_t count,
                              const lum_port_props *records) {
  LUM_INFO(48, "entry s: %d i:%d\n", slot, instance);
  if (count == 0) return;
  for (std::uint16_t i = 0; i < count; ++i) {
    LUM_INFO(49, "port_porterties init for port_idx:%d port_handle:%d rsip: 0x%x\n",
             records[i].port_index, records[i].port_handle, records[i].rsip);
  }
  lum_instance_props *props = instance_at(slot, instance);
  if (props == nullptr) return;
  for (std::uint16_t i = 0; i < count; ++i) {
    if (fill_entry(*props, records[i])) {
      LUM_INFO(50, "port_porterties init done for port rsip: 0x%x\n", records[i].rsip);
    }
  }
}

void lum_port_properties_deinit(std::uint32_t slot, std::uint32_t instance,
                                std::uint16_t port_index) {
  std::lock_guard lock(table_lock);
  lum_instance_props *props = instance_at(slot, instance);
  if (props == nullptr) return;
  for (std::uint16_t i = 0; i < props->size(); ++i) {
    lum_port_props &entry = props->entries[i];
    if (index_of(entry) != port_index) continue;
    c_object<std::uint32_t> cell(entry.context);
    entry.context = nullptr;
    entry.in_use = 0;
    --props->in_use_count;
  }
}

std::uint16_t lum_plat_num_port_info(std::uint32_t slot, std::uint32_t instance) {
  std::lock_guard lock(table_lock);
  const lum_instance_props *props = used_instance_at(slot, instance);
  return props == nullptr ? 0 : static_cast<std::uint16_t>(props->in_use_count);
}

std::uint16_t lum_plat_port_idx(std::uint32_t slot, std::uint32_t instance, std::uint16_t entry) {
  std::lock_guard lock(table_lock);
  const lum_instance_props *props = used_instance_at(slot, instance);
  if (props == nullptr || entry >= props->size()) return 0;
  return index_of(props->entries[entry]);
}

std::uint16_t lum_plat_get_port_handle(std::uint32_t slot, std::uint32_t instance,
                                       std::uint16_t port_index) {
  std::lock_guard lock(table_lock);
  const lum_instance_props *props = instance_at(slot, instance);
  if (props == nullptr) return 0;
  for (std::uint16_t i = 0; i < props->size(); ++i) {
    if (index_of(props->entries[i]) == port_index) {
      return static_cast<std::uint16_t>(props->entries[i].port_handle);
    }
  }
  return 0;
}

// An earlier cell of the entry stays with whoever holds it.
void lum_plat_set_sdev_ctx(std::uint32_t slot, std::uint32_t instance, std::uint32_t port_handle,
                           std::uint32_t value) {
  std::lock_guard lock(table_lock);
  lum_port_props *entry = entry_with_handle(slot, instance, port_handle);
  if (entry == nullptr) return;
  c_object<std::uint32_t> cell = zeroed_object<std::uint32_t>();
  if (cell) *cell = value;
  entry->context = cell.release();
}

std::uint32_t *lum_plat_get_sdev_ctx(std::uint32_t slot, std::uint32_t instance,
                                     std::uint32_t port_handle) {
  std::lock_guard lock(table_lock);
  const lum_port_props *entry = entry_with_handle(slot, instance, port_handle);
  return entry == nullptr ? nullptr : entry->context;
}

std::uint32_t lum_plat_is_slot_used(std::uint32_t slot) {
  std::lock_guard lock(table_lock);
  for (std::uint32_t instance = 0; instance < LUM_MAX_INSTANCES; ++instance) {
    if (used_instance_at(slot, instance) != nullptr) return 1;
  }
  return 0;
}

std::uint32_t lum_plat_is_instance_used(std::uint32_t slot) {
  std::lock_guard lock(table_lock);
  return used_instance_at(slot, 0) != nullptr ? 1 : 0;
}

std::uint32_t lum_plat_is_optics_inserted(std::int32_t, std::int32_t, std::int32_t) { return 1; }
