// The driver itself.
#include <fmt/format.h>

#include <map>

#include "lum.h"
#include "lum_linux/services.h"
#include "metrics/metrics_subjects.h"
#include "node/driver.h"
#include "node/polling_halt.h"
#include "views/store_view.h"
#include "views/times.h"
#include "words/events.h"
#include "words/findings.h"

namespace lumd {
namespace {

void add_driver(driver &node, metrics_page &page) {
  page.fact("lum_build_info", "The driver's version and its node; always 1",
            metric_labels("version", fmt::format("{}.{}.{}", LUM_VERSION_MAJOR, LUM_VERSION_MINOR,
                                                 LUM_VERSION_PATCH))
                .with("node", node.node().name));
  page.gauge("lum_warm_start", "1 when the driver went on with an earlier one's checkpoints", {},
             node.restarted() ? 1 : 0);
  page.gauge("lum_controllers", "Controllers that the library takes for created", {},
             counted_controllers());
}

void add_polling(driver &node, metrics_page &page) {
  const polling_report report = node.polling().report();
  page.counter("lum_polling_cycles_total", "Polling cycles that have ended", {},
               static_cast<double>(report.cycles));
  page.gauge("lum_polling_running", "1 while a polling cycle is running", {},
             report.running ? 1 : 0);
  page.gauge("lum_polling_paused", "1 while polling is switched off", {}, report.paused ? 1 : 0);
  page.gauge("lum_polling_halted",
             "1 while nothing is polled because the library counts no controllers although there "
             "are some",
             {}, node.count().halts_polling() ? 1 : 0);
  const auto halt = halt_of(node);
  page.gauge("lum_polling_stopped", "1 while no module is polled, for whatever reason", {},
             halt ? 1 : 0);
  if (!report.last) return;
  const polling_cycle &cycle = *report.last;
  page.gauge("lum_polling_cycle_duration_seconds", "How long the latest polling cycle took", {},
             seconds_of(cycle.ended - cycle.started));
  page.gauge("lum_polling_cycle_end_timestamp_seconds",
             "When the latest polling cycle ended, since the epoch", {},
             epoch_seconds(node.time_of(cycle.ended)));
  page.gauge("lum_polling_cycle_ports", "Ports looked at in the latest polling cycle", {},
             cycle.ports);
  if (cycle.lateness) {
    page.gauge("lum_polling_cycle_lateness_seconds",
               "How much later than 5 s after the one before the latest polling cycle began", {},
               seconds_of(*cycle.lateness));
  }
}

// Of each there is a counter from the start, so that its first event is a rise.
std::vector<std::string_view> event_kinds() {
  std::vector<std::string_view> kinds;
  kinds.reserve(lum_words::events.size() + lum_words::findings.size());
  for (const auto &one : lum_words::events) kinds.push_back(one.name);
  for (const auto &one : lum_words::findings) kinds.push_back(one.name);
  return kinds;
}

void add_events(driver &node, metrics_page &page) {
  const auto counts = node.events().counts();
  for (const std::string_view kind : event_kinds()) {
    const auto found = counts.find(kind);
    page.counter("lum_events_total", "Events since the driver started", {"kind", kind},
                 found == counts.end() ? 0 : static_cast<double>(found->second));
  }
  page.counter("lum_events_lost_total", "Those of them that will not be kept", {},
               static_cast<double>(node.events().lost()));
  page.gauge("lum_events_kept", "1 while events are kept over a restart", {},
             node.records().problem().empty() ? 1 : 0);
}

void add_interface_manager(driver &node, metrics_page &page) {
  const auto statistics = node.platform().im().statistics();
  const auto count = [&page](const char *name, const char *help, uint64_t value) {
    page.counter(name, help, {}, static_cast<double>(value));
  };
  const auto accepted = [&page](const char *operation, uint64_t value) {
    page.counter("lum_im_batches_total", "Batches that the interface manager has accepted",
                 {"operation", operation}, static_cast<double>(value));
  };
  accepted("create", statistics.create_batches);
  accepted("delete", statistics.delete_batches);
  accepted("update", statistics.update_batches);
  count("lum_im_refused_batches_total", "Batches refused", statistics.refused);
  count("lum_im_answered_batches_total", "Batches answered", statistics.answered);
  count("lum_im_dropped_batches_total", "Accepted batches that are never answered",
        statistics.dropped);
  count("lum_im_elements_total", "Elements of accepted batches", statistics.elements);
  count("lum_im_failed_elements_total", "Elements that failed", statistics.failed_elements);
  count("lum_im_restarts_total", "Restarts of the interface manager", statistics.restarts);
  page.gauge("lum_im_pending_batches", "Batches that are waiting for their answer", {},
             static_cast<double>(statistics.pending));
}

void add_checkpoints(metrics_page &page) {
  const auto store = lum_linux::checkpoints_status();
  page.gauge("lum_store_usable", "1 while the store can be used; nothing is kept without", {},
             store.usable ? 1 : 0);
  std::map<lum_linux::record_trouble, unsigned> records = {
      {lum_linux::record_trouble::lost, 0},
      {lum_linux::record_trouble::unread, 0},
      {lum_linux::record_trouble::unsaved, 0},
      {lum_linux::record_trouble::undeleted, 0}};
  for (const auto &one : store.troubled) ++records[one.trouble];
  for (const auto &[trouble, count] : records) {
    page.gauge("lum_store_records", "Records of settings that something is wrong with",
               {"trouble", trouble_name(trouble)}, count);
  }
  if (store.open) {
    page.gauge("lum_checkpoint_entries", "Records in the checkpoint store", {},
               static_cast<double>(store.entries));
  }
  page.counter("lum_checkpoint_writes_total", "Durable changes of the checkpoint store", {},
               static_cast<double>(store.writes));
  page.counter("lum_checkpoint_failures_total", "Calls that the checkpoint store could not serve",
               {}, static_cast<double>(store.failures));
}

void add_traces(metrics_page &page) {
  for (const auto &channel : lum_linux::traces_status()) {
    const metric_labels labels("channel", channel.name);
    page.counter("lum_trace_lines_total", "Lines written to the trace channel", labels,
                 static_cast<double>(channel.lines));
    page.counter("lum_trace_failures_total", "Lines that could not be written", labels,
                 static_cast<double>(channel.failures));
    page.gauge("lum_trace_usable", "1 while the trace channel can be written", labels,
               channel.reason.empty() ? 1 : 0);
  }
}

}  // namespace

void add_node_metrics(driver &node, metrics_page &page) {
  add_driver(node, page);
  add_polling(node, page);
  add_events(node, page);
  add_interface_manager(node, page);
  add_checkpoints(page);
  add_traces(page);
}

}  // namespace lumd
