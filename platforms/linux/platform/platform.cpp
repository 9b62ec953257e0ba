#include "lum_linux/platform.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <system_error>

#include "lum_linux/disks.h"
#include "lum_linux/services.h"
#include "lum_linux/stores.h"
#include "platform/platform_core.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr const char *trace_directory_key = "liblum_ctrace_dir";
constexpr const char *checkpoint_file = "checkpoints.db";
constexpr std::chrono::seconds store_period(5);

bool is_of_the_disk(const std::error_code &code) {
  return code.value() == ENOSPC || code.value() == EDQUOT || code.value() == EROFS ||
         code.value() == EIO;
}

// A disk that is full or read-only costs what is kept on it, not the node: who writes there says
// why it cannot.
bool make_folder(const fs::path &folder, std::string &error) {
  std::error_code code;
  fs::create_directories(folder, code);
  if (!code) return true;
  error = fmt::format("cannot make the folder '{}': {}", folder.native(), code.message());
  return is_of_the_disk(code);
}

// For this process alone. A directory that cannot be locked, for its disk is full or does not
// answer, is told of by the checkpoint store.
bool take_state_directory(platform::core &core, std::string &error) {
  const fs::path &folder = core.node.state_directory;
  if (!folder_answers(folder) || core.state_lock.acquire(folder) != EWOULDBLOCK) return true;
  error =
      fmt::format("cannot use the state directory '{}': another process uses it", folder.native());
  return false;
}

// Takes the state directory and points the services to their folders. The checkpoint store makes
// its folder later, whoever serves an API makes that of its socket.
bool start_storage(platform::core &core, std::string &error) {
  const node_description &node = core.node;
  if (!take_state_directory(core, error)) return false;
  folder_answers(node.api_socket.parent_path());
  if (folder_answers(node.trace_directory)) {
    if (!make_folder(node.trace_directory, error)) return false;
    error.clear();
  }
  if (const cerrno code = checkpoints_set_path(node.state_directory / checkpoint_file)) {
    error = fmt::format("cannot name the checkpoint store: {}", cerr_strerror(code));
    return false;
  }
  if (const cerrno code = traces_set_directory(trace_directory_key, node.trace_directory)) {
    error = fmt::format("cannot set the trace directory: {}", cerr_strerror(code));
    return false;
  }
  pm_forget_all();
  ptah_forget_all();
  return true;
}

bool start_hardware(platform::core &core, std::string &error) {
  for (const port_description *port : core.node.ports()) core.fw_upgrade[port->rsip] = 0;
  core.modules = modules::open(core.node, error);
  if (!core.modules) return false;
  core.leds = std::make_unique<leds>(core.node);
  return true;
}

bool start_threads(platform::core &core, std::string &error) {
  core.evm = event_manager_create("lum_events");
  if (core.evm == 0) {
    error =
        "cannot start the event manager: the system gives no memory or no thread for it, see "
        "ulimit -u";
    return false;
  }
  const im_description &im = core.node.interface_manager;
  core.im = std::make_unique<interface_manager>(
      im_options{im.handle_base, milliseconds(im.delay_min_ms), milliseconds(im.delay_max_ms),
                 im.seed, im.out_of_order});
  core.keeper = std::make_unique<periodic>(
      "lum-store", store_period,
      [] {
        checkpoints_tend();
        traces_tend();
      },
      store_period);
  return true;
}

// What is left of a bound, never below a moment.
class deadline {
 public:
  explicit deadline(milliseconds bound) : end_(std::chrono::steady_clock::now() + bound) {}
  milliseconds left() const {
    const auto now = std::chrono::steady_clock::now();
    return std::max(milliseconds(10), std::chrono::duration_cast<milliseconds>(end_ - now));
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

bool stop_core(const std::shared_ptr<platform::core> &core, milliseconds bound) {
  const deadline until(bound);
  const std::lock_guard lock(core->stop_mutex);
  if (core->stopped) return core->stopped_whole;
  core->stopped = true;
  withdraw_platform();
  // Transfers end first: a completion or handler may be waiting for one.
  if (core->modules) core->modules->stop();
  if (core->im && !core->im->stop(until.left())) core->stopped_whole = false;
  if (core->evm != 0 && !event_manager_destroy(core->evm, until.left())) {
    core->stopped_whole = false;
  }
  ea_unregister();
  if (core->keeper && !core->keeper->stop()) core->stopped_whole = false;
  checkpoints_close();
  core->state_lock.release();
  give_up_platform();
  return core->stopped_whole;
}

}  // namespace

std::unique_ptr<platform> platform::start(const node_description &node, std::string &error) {
  if (!reserve_platform()) {
    error = "this process has a platform already";
    return nullptr;
  }
  std::unique_ptr<platform> result;
  try {
    const auto core = std::make_shared<platform::core>();
    result.reset(new platform(core));
    core->node = node;
    if (start_storage(*core, error) && start_hardware(*core, error) &&
        start_threads(*core, error)) {
      publish_platform(core);
      return result;
    }
  } catch (const std::bad_alloc &) {
    if (!result) give_up_platform();
    throw;
  } catch (const std::system_error &failure) {
    const bool no_thread = failure.code() == std::errc::resource_unavailable_try_again;
    error = fmt::format("cannot start the platform: {}{}", failure.what(),
                        no_thread ? ": the system gives no more threads, see ulimit -u" : "");
  } catch (const std::exception &exception) {
    error = fmt::format("cannot start the platform: {}", exception.what());
  }
  return nullptr;
}

platform::platform(std::shared_ptr<core> state) : core_(std::move(state)) {}

platform::~platform() { stop(); }

const lum_platform_cbs &platform::callbacks() const { return platform_callbacks(); }

event_manager platform::evm() const { return core_->evm; }

const node_description &platform::node() const { return core_->node; }

interface_manager &platform::im() { return *core_->im; }

modules &platform::modules() { return *core_->modules; }

leds &platform::leds() { return *core_->leds; }

void platform::observe_controllers(controllers_observer observer) {
  core_->watch.observe_controllers(std::move(observer));
}

void platform::observe_updates(update_observer observer) {
  core_->watch.observe_updates(std::move(observer));
}

uint32_t platform::created_controllers() const { return core_->watch.count(); }

bool platform::has_controllers(uint32_t rsip) const { return core_->watch.has_any(rsip); }

bool platform::wait_created(uint32_t count, milliseconds bound) const {
  return core_->watch.wait_at_least(count, bound);
}

bool platform::wait_deleted(uint32_t count, milliseconds bound) const {
  return core_->watch.wait_at_most(count, bound);
}

bool platform::set_fw_upgrade(uint32_t rsip, uint32_t status) {
  const auto found = core_->fw_upgrade.find(rsip);
  if (found == core_->fw_upgrade.end()) return false;
  found->second = status;
  return true;
}

uint32_t platform::fw_upgrade(uint32_t rsip) const {
  const auto found = core_->fw_upgrade.find(rsip);
  return found == core_->fw_upgrade.end() ? 0 : found->second.load();
}

bool platform::stop(milliseconds bound) { return stop_core(core_, bound); }

}  // namespace lum_linux
