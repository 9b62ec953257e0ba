// The process, under the names that every exporter has for it. What the system does not tell is
// left out.
#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <optional>

#include "metrics/metrics_subjects.h"
#include "node/driver.h"

namespace lumd {
namespace {

double seconds_of(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct memory_pages {
  double all = 0;
  double resident = 0;
};

std::optional<memory_pages> pages_of_this() {
  std::ifstream file("/proc/self/statm");
  memory_pages pages;
  if (!(file >> pages.all >> pages.resident)) return std::nullopt;
  return pages;
}

// Without the one by which they are counted.
std::optional<double> open_descriptors() {
  DIR *const folder = ::opendir("/proc/self/fd");
  if (folder == nullptr) return std::nullopt;
  double count = -1;
  while (const dirent *entry = ::readdir(folder)) {
    if (entry->d_name[0] != '.') ++count;
  }
  ::closedir(folder);
  return count;
}

}  // namespace

void add_process_metrics(driver &node, metrics_page &page) {
  page.gauge("process_start_time_seconds", "When the process started, since the epoch", {},
             std::chrono::duration<double>(node.started().time_since_epoch()).count());
  rusage used = {};
  if (::getrusage(RUSAGE_SELF, &used) == 0) {
    page.counter("process_cpu_seconds_total", "Processor time used, in user and system mode", {},
                 seconds_of(used.ru_utime) + seconds_of(used.ru_stime));
  }
  if (const auto pages = pages_of_this()) {
    const auto size = static_cast<double>(::sysconf(_SC_PAGESIZE));
    page.gauge("process_virtual_memory_bytes", "Address space of the process", {},
               pages->all * size);
    page.gauge("process_resident_memory_bytes", "Memory that the process has", {},
               pages->resident * size);
  }
  if (const auto count = open_descriptors()) {
    page.gauge("process_open_fds", "Open file descriptors", {}, *count);
  }
  rlimit limit = {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
    page.gauge("process_max_fds", "Most file descriptors that may be open", {},
               static_cast<double>(limit.rlim_cur));
  }
}

}  // namespace lumd
