#include "node/entity_agent.h"

#include <fmt/format.h>

#include "lum.h"

namespace lumd {
namespace {

agent_report report_on(cerrno rc) {
  const lum_ctx &context = *lum_get_ctx();
  agent_report report;
  report.rc = rc;
  if (!CERR_IS_OK(rc)) report.missing = fmt::format("the library answered {}", rc);
  report.replay_required = __atomic_load_n(&context.ea_replay_required_bitmap, __ATOMIC_RELAXED);
  report.resync_complete =
      __atomic_load_n(&context.is_resync_with_ea_complete, __ATOMIC_RELAXED) != 0;
  return report;
}

}  // namespace

agent_report run_agent_batch(lum_linux::ea_operation operation, const lum_linux::ea_entry &entry) {
  std::vector<bool> served;
  const cerrno rc = lum_linux::ea_run(static_cast<uint32_t>(operation), {&entry, 1}, served);
  agent_report report = report_on(rc);
  report.served = !served.empty() && served.front();
  return report;
}

agent_report connect_agent() { return report_on(lum_linux::ea_connect()); }

}  // namespace lumd
