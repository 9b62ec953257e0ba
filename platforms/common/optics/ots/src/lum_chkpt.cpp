// One record per port in the platform's checkpoint storage, so that a restarted client gets the
// configuration of its ports back.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "base/bytes.h"
#include "base/quiet_lock.h"
#include "base/shared.h"
#include "base/trace.h"
#include "bounded_copy.h"
#include "lum_chkpt.h"
#include "lum_controller_interface/port_cfg_lock.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_chkpt";

namespace {

constexpr std::uint32_t record_size = sizeof(lum_chkpt_record);
constexpr std::uint32_t descriptor_version = 0x2003;
constexpr std::uint32_t table_version = 0x12003;
constexpr std::uint16_t table_entries = 0xFE4;
constexpr std::uint32_t table_kind = 40;

// Two changes of one port at the same time must not reach the storage in the wrong order. One lock
// for all ports: the storage writes one record at a time anyway. Held over the disk.
quiet_lock save_order;

// The holds there are, and how often one of them has ended.
quiet_lock holds_lock;
record_hold *holds = nullptr;  // under holds_lock
std::atomic<std::uint32_t> holds_ended{0};

// The part of a key that tells the storage where the port is.
std::uint32_t node_of(const lum_port_data &port) { return port.rack << 24 | port.slot << 16; }

// Traces show the low half of an id.
std::uint32_t shown(std::uint64_t id) { return static_cast<std::uint32_t>(id); }

cerrno create_record(lum_port_data &port);
cerrno save_record(const lum_ctx &context, lum_port_data &port);
cerrno load(std::uint64_t table, std::uint32_t key, lum_port_data &port);

}  // namespace

cerrno lum_chkpt_init(lum_ctx *context, std::uint32_t *restart) {
  if (context == nullptr || restart == nullptr) return EINVAL;
  chkpt_appdesc_init(&context->chkpt_app);
  const auto application = bytes_of(context->chkpt_app);
  put<CHKPT_APPDESC_OPTIONS, std::uint32_t>(application, 0);
  put<CHKPT_APPDESC_VERSION, std::uint32_t>(application, descriptor_version);
  const auto name = application.subspan<CHKPT_APPDESC_NAME, CHKPT_APPDESC_NAME_SIZE>();
  strncpy_s(reinterpret_cast<char *>(name.data()), name.size(), "LUM_LIB", name.size() - 1);
  cerrno rc = chkpt_init(0, &context->chkpt_app);
  if (rc != 0 && rc != CHKPT_ALREADY_INITIALISED) {
    LUM_ERROR(229, "checkpoint init failed: rc = %d\n", rc);
    return rc;
  }
  LUM_INFO(230, "checkpoint init successful\n");

  chkpt_tbldesc descriptor = {};
  chkpt_tbldesc_init(&descriptor);
  const auto table = bytes_of(descriptor);
  put<CHKPT_TBLDESC_VERSION, std::uint32_t>(table, table_version);
  put<CHKPT_TBLDESC_KEYED, std::uint32_t>(table, 1);
  put<CHKPT_TBLDESC_ENTRIES, std::uint16_t>(table, table_entries);
  put<CHKPT_TBLDESC_PERSISTENT, std::uint32_t>(table, 1);
  rc = chkpt_register(&descriptor, table_kind, restart, &context->chkpt_table);
  if (rc != 0) {
    LUM_ERROR(231, "checkpoint register for global table failed: rc = %d\n", rc);
    return rc;
  }
  LUM_INFO(232, "checkpoint register for global table succeeded, restart: %d\n", *restart);
  return 0;
}

// A port that has left the database gets no record any more; a block that never was in it does.
cerrno lum_chkpt_create(lum_port_data *data) {
  ports_reader reader;
  const record_hold hold(rsip_of(*data));
  return shared_load(data->removed) != 0 ? 0 : create_record(*data);
}

cerrno lum_chkpt_save(lum_port_data *data) {
  const lum_ctx *context = lum_get_ctx();
  if (data == nullptr || context == nullptr) return 0;
  ports_reader reader;
  for (;;) {
    const std::uint32_t ended = holds_ended.load();
    {
      std::lock_guard lock(save_order);
      const record_hold hold(rsip_of(*data), std::try_to_lock);
      if (hold) return shared_load(data->removed) != 0 ? 0 : save_record(*context, *data);
    }
    holds_ended.wait(ended);  // a deletion of this port holds no other port's save up
  }
}

namespace {

cerrno create_record(lum_port_data &port) {
  const std::uint32_t key = rsip_of(port);
  if (const std::uint64_t id = shared_load(port.chkpt.chkpt_id); id != 0) {
    LUM_INFO(233, "chkpt_id 0x%x for 0x%x already exist, no need to create\n", shown(id), key);
    return 0;
  }
  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr) return EINVAL;
  std::uint64_t id = 0;
  cerrno rc = 0;
  if (chkpt_mapkey(context->chkpt_table, key, &id, node_of(port)) != 0) {
    rc = chkpt_create(context->chkpt_table, key, &id);
    if (rc != 0) {
      LUM_ERROR(234, "Error in chkpt create: rc %d for key 0x%x\n", rc, key);
      return rc;
    }
    shared_store(port.chkpt.chkpt_id, id);
  } else {
    shared_store(port.chkpt.chkpt_id, id);
    rc = load(context->chkpt_table, key, port);
  }
  shared_store(port.chkpt.key, key);
  shared_store(port.chkpt.created, 1);
  LUM_INFO(235, "checkpoint create succeeded: id 0x%x, key 0x%x\n",
           shown(shared_load(port.chkpt.chkpt_id)), key);
  return rc;
}

cerrno save_record(const lum_ctx &context, lum_port_data &port) {
  if (shared_load(port.chkpt.created) != 1) {
    if (const cerrno rc = create_record(port); rc != 0) return rc;
  }
  lum_chkpt_record record = {};
  record.created = 1;
  record.key = shared_load(port.chkpt.key);
  record.chkpt_id = shared_load(port.chkpt.chkpt_id);
  {
    std::lock_guard cfg(port_cfg_lock);
    shared_read(record.port_cfg, port.port_cfg, sizeof record.port_cfg);
  }
  const cerrno rc = chkpt_save(context.chkpt_table, record.chkpt_id, &record, record_size);
  if (rc != 0) {
    LUM_ERROR(236,
              "chkpt save entry failed for rsip [0x%x]            (chkpt_id= 0x%x), data "
              "size=%lu, rc %d\n",
              rsip_of(port), shown(record.chkpt_id), sizeof record, rc);
  } else {
    LUM_INFO(237,
             "saved chkpt entry for rsip [0x%x] with (chkpt_id= 0x%x),            data "
             "size=%lu\n",
             rsip_of(port), shown(record.chkpt_id), sizeof record);
  }
  return rc;
}

}  // namespace

// No port exists yet at start-up, so the walk mostly tells what there is; the configuration comes
// back with the port's creation.
cerrno lum_port_chkpt_recover(lum_ctx *context) {
  if (context == nullptr) return EINVAL;
  std::uint64_t iterator = 0;
  if (const cerrno rc = chkpt_iterate_start(context->chkpt_table, &iterator); rc != 0) {
    LUM_ERROR(238, "Error in chkpt iterate start: rc %d\n", rc);
    return rc;
  }
  for (;;) {
    lum_chkpt_record record = {};
    std::uint64_t id = 0;
    std::uint32_t size = record_size;
    if (const cerrno rc = chkpt_iterate_next(iterator, 0, &id, &record, &size); rc != 0) {
      LUM_ERROR(239, "chkpt_iterate_next failed: rc %d\n", rc);
      break;
    }
    if (id == 0) break;
    LUM_INFO(240, "[recovered pending] [0x%x] with (chkpt_id= 0x%x)\n", record.key,
             shown(record.chkpt_id));
    ports_reader reader;
    if (lum_port_node_info *node = find_port(record.key); node != nullptr) {
      shared_write(&node->data.chkpt, &record, sizeof record);
    }
  }
  const cerrno rc = chkpt_iterate_end(iterator);
  if (rc != 0) {
    LUM_ERROR(241, "Unable to end imdr chkpt iteration. Error: %s\n", cerr_strerror(rc));
  }
  LUM_INFO(242, "Recovery complete \n");
  return rc;
}

cerrno lum_port_chkpt_delete(lum_port_data *data) {
  const lum_ctx *context = lum_get_ctx();
  if (data == nullptr || context == nullptr) return EINVAL;
  ports_reader reader;
  const std::uint32_t key = rsip_of(*data);
  const record_hold hold(key);
  std::uint64_t id = shared_load(data->chkpt.chkpt_id);
  cerrno rc = chkpt_mapkey(context->chkpt_table, key, &id, node_of(*data));
  if (rc != 0) {
    LUM_ERROR(243, "failed to find checkpoint record for chkpt_id 0x%x, key 0x%x rc %d\n",
              shown(id), key, rc);
    shared_and(data->chkpt.created, 0xFFFFFF00);
  } else {
    if (const cerrno deleted = chkpt_delete(context->chkpt_table, id); deleted != 0) {
      LUM_ERROR(244, "failed to delete checkpoint record for chkpt_id 0x%x, rc %d\n", shown(id),
                deleted);
      return deleted;
    }
    LUM_INFO(245, "checkpoint record deleted for chkpt_id 0x%x\n", shown(id));
    shared_clear(&data->chkpt, sizeof data->chkpt);
  }
  shared_store(data->chkpt.chkpt_id, 0);
  return rc;
}

record_hold::record_hold(std::uint32_t rsip) : rsip_(rsip) {
  for (;;) {
    const std::uint32_t ended = holds_ended.load();
    held_ = enter();
    if (held_) return;
    holds_ended.wait(ended);
  }
}

record_hold::record_hold(std::uint32_t rsip, std::try_to_lock_t) : rsip_(rsip), held_(enter()) {}

record_hold::~record_hold() {
  if (!held_) return;
  {
    std::lock_guard lock(holds_lock);
    record_hold **at = &holds;
    while (*at != this) at = &(*at)->next_;
    *at = next_;
  }
  holds_ended.fetch_add(1);
  holds_ended.notify_all();
}

void lum::wait_for_deletion(std::uint32_t rsip) { const record_hold hold(rsip); }

bool record_hold::enter() {
  std::lock_guard lock(holds_lock);
  for (const record_hold *other = holds; other != nullptr; other = other->next_) {
    if (other->rsip_ == rsip_ && pthread_equal(other->thread_, thread_) == 0) return false;
  }
  next_ = holds;
  holds = this;
  return true;
}

namespace {

// Gives the port the configuration of its stored record. The storage refuses a record of another
// size.
cerrno load(std::uint64_t table, std::uint32_t key, lum_port_data &port) {
  const std::uint64_t id = shared_load(port.chkpt.chkpt_id);
  lum_chkpt_record record = {};
  std::uint32_t size = record_size;
  cerrno rc = chkpt_get(table, id, 0, &record, &size);
  LUM_INFO(246, "checkpoint get for id 0x%x, key 0x%x returns %d len %d\n", shown(id), key, rc,
           size);
  if (rc != 0) return rc;
  shared_write(&port.chkpt, &record, sizeof record);
  std::lock_guard cfg(port_cfg_lock);
  shared_write(port.port_cfg, record.port_cfg, sizeof record.port_cfg);
  return 0;
}

}  // namespace
