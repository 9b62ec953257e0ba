#include "terminal/progress.h"
#include "base/output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "terminal/terminal.h"

namespace lumctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds before_the_first(1000);
constexpr milliseconds between(100);
constexpr std::size_t bar_width = 30;
constexpr std::size_t runner_width = 5;

}  // namespace

progress::progress(std::string what, std::optional<milliseconds> longest)
    : what_(std::move(what)), longest_(longest) {
  if (!is_steerable(STDERR_FILENO)) return;
  thread_ = std::thread([this] { run(); });
}

progress::~progress() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void progress::run() {
  const auto started = std::chrono::steady_clock::now();
  if (wait(before_the_first)) return;
  do {
    const auto passed =
        std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - started);
    lum_client::complain(fmt::format("\r[{}] {}, {:.0f} s\x1b[K",
                                     progress_bar(passed, longest_, bar_width), what_,
                                     std::chrono::duration<double>(passed).count()));
  } while (!wait(between));
  lum_client::complain("\r\x1b[K");
}

// Returns whether it is over.
bool progress::wait(milliseconds time) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, time, [this] { return done_; });
}

std::string progress_bar(milliseconds passed, std::optional<milliseconds> longest,
                         std::size_t width) {
  if (longest && longest->count() > 0) {
    const double part = static_cast<double>(passed.count()) / static_cast<double>(longest->count());
    const auto filled =
        static_cast<std::size_t>(std::clamp(part, 0.0, 1.0) * static_cast<double>(width));
    return std::string(filled, '#') + std::string(width - filled, '.');
  }
  const std::size_t way = width - std::min(width, runner_width);
  const std::size_t step =
      static_cast<std::size_t>(passed / between) % std::max<std::size_t>(1, 2 * way);
  std::string bar(width, '.');
  bar.replace(step < way ? step : 2 * way - step, width - way, std::string(width - way, '#'));
  return bar;
}

}  // namespace lumctl
