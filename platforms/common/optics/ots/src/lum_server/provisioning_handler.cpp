// Any thread wakes the provisioning handler; on the event manager's thread it provisions the ports
// in need.
#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"
#include "lum_server/lum_server.h"

using namespace lum;

static constexpr char trace_area[] = "lum_server";

std::uint32_t lum_pending_provisioning;
std::uint32_t lum_prov_in_progress;
std::uint32_t lum_prov_pulse_sent;
pthread_mutex_t prov_lock;
std::uint32_t prov_handler_run_count;

static void provision_all_ports();

// At most one pulse is queued; a request made meanwhile is folded into the pending flag.
void lum_wakeup_provisioning_thread() {
  LUM_INFO(250, "Entering lum_wakeup_provisioning_thread\n");
  lum_prov_lock(93);
  shared_store(lum_pending_provisioning, 1);
  if (shared_load(lum_prov_pulse_sent) == 0) {
    event_send_async(lum_get_ctx()->evm, provisioning_pulse, 0);
    shared_store(lum_prov_pulse_sent, 1);
  }
  lum_prov_unlock(99);
  LUM_INFO(251, "Exiting lum_wakeup_provisioning_thread\n");
}

void lum_prov_lock(std::int32_t line) {
  library_hold lock(prov_lock, {"lum_prov_lock", 68});
  if (lock.error() != 0) {
    LUM_ERROR(252, "prov lock failed with rc: %d line: %d\n", lock.error(), line);
  }
  lock.keep();
}

void lum_prov_unlock(std::int32_t line) {
  if (const int rc = library_lock(prov_lock).release(); rc != 0) {
    LUM_ERROR(253, "prov unlock failed with rc: %d line: %d\n", rc, line);
  }
}

// A wake-up during a pass causes one more pass; its own pulse then finds nothing to do.
void lum::provisioning_handler(event_manager, std::uint32_t, std::uint64_t) {
  LUM_INFO(258, "Entering lum_provisioning_handler\n");
  shared_store(prov_handler_run_count, shared_load(prov_handler_run_count) + 1);
  lum_prov_lock(__LINE__);
  shared_store(lum_prov_pulse_sent, 0);
  lum_prov_unlock(__LINE__);
  while (shared_load(lum_pending_provisioning) != 0) {
    lum_prov_lock(__LINE__);
    shared_store(lum_pending_provisioning, 0);
    lum_prov_unlock(__LINE__);
    shared_store(lum_prov_in_progress, 1);
    provision_all_ports();
  }
  shared_store(lum_prov_in_progress, 0);
  LUM_INFO(259, "Exiting lum_provisioning_handler\n");
}

// The port's flag is for the per-port step or the client to clear.
static void provision_all_ports() {
  std::uint32_t provisioned = 0;
  for (lum_port_node_info &node : all_ports()) {
    lum_port_data &port = node.data;
    if (shared_load(port.provisioning_needed) == 0) {
      LUM_INFO(260, "Provisionig Not Needed for for rsip %d/%d/%d/%d\n", port.rack, port.slot,
               port.instance, port.port);
      continue;
    }
    ++provisioned;
    LUM_INFO(261, "Going to Provision for rsip %d/%d/%d/%d\n", port.rack, port.slot, port.instance,
             port.port);
    const cerrno rc = lum_process_provisioning(&port, shared_load(node.port_handle));
    if (rc == 0) {
      LUM_INFO(262, "Completed provisioning for rsip %d/%d/%d/%d loop_count = %d\n", port.rack,
               port.slot, port.instance, port.port, provisioned);
    } else {
      LUM_ERROR(263, "Provisioning returned Error for rsip %d/%d/%d/%d status: %d\n", port.rack,
                port.slot, port.instance, port.port, rc);
    }
  }
}
