// The ports database: nodes are added, given their port handle, found and removed.
#include <cassert>
#include <cerrno>
#include <cstddef>
#include <mutex>

#include "base/locks.h"
#include "base/memory.h"
#include "base/quiet_lock.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

lum_ports_db lum_platform;

static constexpr char trace_area[] = "lum_ports_db";

static int by_rsip(const void *first, const void *second);
static int by_port_handle(const void *first, const void *second);
static void copy_template(lum_port_data &port, const lum_port_data &data);
static void store_handle(port_node &node, std::uint32_t port_handle);
static bool insert_by_handle(port_node &node, std::uint32_t port_handle);
static void drop_node(port_node *node);
static lum_port_node_info *search(std::uint32_t index, std::uint32_t lum_port_node_info::*key,
                                  std::uint32_t value);

cerrno lum_ports_db_init() {
  return wavl_init(&lum_platform.tree, 2, offsetof(lum_port_node_info, links), by_rsip,
                   by_port_handle);
}

cerrno lum_ports_db_add_entry(std::uint32_t rsip, const lum_port_data *data) {
  if (!wavl_running(&lum_platform.tree)) {
    LUM_ERROR(206, "wavl is not running\n");
    return EAGAIN;
  }
  c_object<port_node> node = zeroed_object<port_node>();
  if (!node) {
    LUM_ERROR(207, "calloc failure\n");
    return ENOMEM;
  }
  LUM_INFO(208, "insert into lum_port_db wavl tree rsip: 0x%x\n", rsip);
  node->rsip = rsip;
  copy_template(node->data, *data);

  library_hold lock(lum_platform.mutex, {__func__, __LINE__});
  if (lock.error() != 0) {
    LUM_ERROR(209, "mutex lock failure, errno: %d\n", lock.error());
    return lock.error();
  }
  cerrno result = 0;
  if (wavl_insert_thread(&lum_platform.tree, 0, node.get())) {
    static_cast<void>(node.release());
    ++lum_platform.rsip_count;
    lum_inc_ots_cntrs(LUM_SUB_PORTS);
  } else {
    node.reset();
    LUM_INFO(210, "insert into lum_port_db wavl tree failed cur %d\n", lum_platform.rsip_count);
    result = EFAULT;
  }
  if (const int rc = lock.release(); rc != 0) {
    LUM_ERROR(211, "mutex unlock failure, errno: %d\n", rc);
    return rc;
  }
  return result;
}

// A node that could not take the mutex stays in the database and keeps its memory: it is freed when
// it is removed.
cerrno lum_ports_db_update_entry(std::uint32_t rsip, std::uint32_t port_handle) {
  ports_reader reader;
  auto *node = static_cast<port_node *>(find_port(rsip));
  if (node == nullptr) {
    LUM_INFO(212, "insert into lum_port_db wavl tree failed  %d\n",
             shared_load(lum_platform.port_handle_count));
    return EFAULT;
  }
  store_handle(*node, port_handle);
  LUM_INFO(213, "insert into lum_port_db wavl tree port_handle %d, 0x%x\n", port_handle,
           port_handle);

  library_hold lock(lum_platform.mutex, {__func__, __LINE__});
  if (lock.error() != 0) {
    LUM_ERROR(214, "ports DB mutex lock failed, errno: %d\n", lock.error());
    return lock.error();
  }
  if (insert_by_handle(*node, port_handle)) {
    shared_store(lum_platform.port_handle_count, lum_platform.port_handle_count + 1);
  } else {
    drop_node(node);
    LUM_INFO(215, "insert into lum_port_db wavl tree failed %d\n", lum_platform.port_handle_count);
  }
  if (const int rc = lock.release(); rc != 0) {
    LUM_ERROR(216, "ports DB mutex unlock failed, errno: %d\n", rc);
    return rc;
  }
  return 0;
}

lum_port_node_info *lum::find_port(std::uint32_t rsip) {
  assert(in_reader_section());
  if (!wavl_running(&lum_platform.tree)) {
    LUM_ERROR(217, "wavl is not running\n");
    return nullptr;
  }
  library_hold lock(lum_platform.mutex, {"lum_ports_db_find_entry", __LINE__});
  if (lock.error() != 0) {
    LUM_ERROR(218, "ports DB mutex lock failed, errno: %d\n", lock.error());
    return nullptr;
  }
  lum_port_node_info *node = search(0, &lum_port_node_info::rsip, rsip);
  return lock.release() == 0 ? node : nullptr;
}

lum_port_node_info *lum::find_port_by_handle(std::uint32_t port_handle) {
  assert(in_reader_section());
  if (!wavl_running(&lum_platform.tree)) {
    LUM_ERROR(219, "wavl is not running\n");
    return nullptr;
  }
  return search(1, &lum_port_node_info::port_handle, port_handle);
}

bool lum::is_replaced(const lum_port_data &port) {
  return shared_load(port.removed) != 0 && find_port(rsip_of(port)) != nullptr;
}

// Inside the section of the caller, if it has one: what is returned is its own to keep.
lum_port_node_info *lum_ports_db_find_entry(std::uint32_t rsip) {
  ports_reader reader;
  return find_port(rsip);
}

lum_port_node_info *lum_get_port_node_from_rsip(std::uint32_t rsip) {
  return lum_ports_db_find_entry(rsip);
}

lum_port_node_info *lum_get_port_node_from_port_handle(std::uint32_t port_handle) {
  ports_reader reader;
  return find_port_by_handle(port_handle);
}

cerrno lum_ports_db_remove_entry(std::uint32_t rsip) {
  ports_reader reader;
  auto *node = static_cast<port_node *>(find_port(rsip));
  if (node == nullptr) return ENOENT;

  library_hold lock(lum_platform.mutex, {__func__, __LINE__});
  if (lock.error() != 0) {
    LUM_ERROR(220, "ports DB mutex lock failed, errno: %d\n", lock.error());
    return lock.error();
  }
  cerrno result = 0;
  if (wavl_delete(&lum_platform.tree, node)) {
    retire_node(node);
    --lum_platform.rsip_count;
    shared_store(lum_platform.port_handle_count, lum_platform.port_handle_count - 1);
    lum_dec_ots_cntrs(LUM_SUB_PORTS);
    LUM_INFO(221, "ports DB delete done, rsip 0x%x\n", rsip);
  } else {
    LUM_ERROR(222, "ports DB delete err, rsip 0x%x\n", rsip);
    result = EFAULT;
  }
  if (const int rc = lock.release(); rc != 0) {
    LUM_ERROR(223, "ports DB mutex unlock failed, errno: %d\n", rc);
    return rc;
  }
  return result;
}

cerrno lum_ports_db_walk_via_rsip(wavl_callback callback, void *context) {
  ports_reader reader;
  wavl_walk(&lum_platform.tree, 0, callback, context);
  return 0;
}

// A template may be the block of another port, at work or on its way out: the mutex and what stands
// behind it are the new port's own.
static void copy_template(lum_port_data &port, const lum_port_data &data) {
  shared_read(&port, &data, offsetof(lum_port_data, port_mutex));
  make_error_checking(port.port_mutex);
}

static int compare_keys(std::uint32_t first, std::uint32_t second) {
  return first < second ? 0 : first == second ? 1 : 2;
}

// A null node sorts before any node.
static int compare_nodes(const void *first, const void *second,
                         std::uint32_t lum_port_node_info::*key) {
  if (first == nullptr) return second == nullptr ? 1 : 0;
  if (second == nullptr) return 2;
  return compare_keys(shared_load(static_cast<const lum_port_node_info *>(first)->*key),
                      shared_load(static_cast<const lum_port_node_info *>(second)->*key));
}

static int by_rsip(const void *first, const void *second) {
  return compare_nodes(first, second, &lum_port_node_info::rsip);
}

static int by_port_handle(const void *first, const void *second) {
  return compare_nodes(first, second, &lum_port_node_info::port_handle);
}

// The node that a thread's searches look for, zero but for the one key while a search lasts: to
// clear a whole node for each would take longer than the search.
static constinit thread_local lum_port_node_info sought_node = {};
// Where it is, which takes a call to find out.
[[gnu::tls_model(
    "initial-exec")]] static constinit thread_local lum_port_node_info *sought_by_thread = nullptr;

static lum_port_node_info *search(std::uint32_t index, std::uint32_t lum_port_node_info::*key,
                                  std::uint32_t value) {
  if (sought_by_thread == nullptr) sought_by_thread = &sought_node;
  lum_port_node_info &sought = *sought_by_thread;
  sought.*key = value;
  void *found = wavl_search(&lum_platform.tree, &sought, index);
  sought.*key = 0;
  return static_cast<lum_port_node_info *>(found);
}

// A node's place in index 1 hangs on its handle, which must not change once the node is there.
static quiet_lock handle_lock;

// Before it takes the mutex an update gives its handle to a node that is not in index 1.
static void store_handle(port_node &node, std::uint32_t port_handle) {
  std::lock_guard lock(handle_lock);
  if (!node.in_handle_index) shared_store(node.port_handle, port_handle);
}

// Fails for a handle that is taken, a node that has its place already, and one that was removed
// while this thread waited. Under the database mutex.
static bool insert_by_handle(port_node &node, std::uint32_t port_handle) {
  if (node.retired_at != 0) return false;
  std::lock_guard lock(handle_lock);
  if (!node.in_handle_index) shared_store(node.port_handle, port_handle);
  if (!wavl_insert_thread(&lum_platform.tree, 1, &node)) return false;
  node.in_handle_index = 1;
  return true;
}

// Takes a node whose handle could not be indexed out of the database, unless it is out already.
// Under the database mutex.
static void drop_node(port_node *node) {
  if (!wavl_delete_thread(&lum_platform.tree, 0, node)) return;
  if (node->in_handle_index) wavl_delete_thread(&lum_platform.tree, 1, node);
  retire_node(node);
}
