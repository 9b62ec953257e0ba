// The library context and its start-up.
#include <csignal>

#include "base/fatal.h"
#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "bounded_copy.h"
#include "lum_api/lum_api.h"

using namespace lum;

static constexpr char trace_area[] = "lum_api";

static lum_ctx context;
static pthread_mutex_t start_up_mutex;
static std::uint8_t init_done;  // under start_up_mutex

pthread_mutex_t lum::serial_mutex;

static void copy_parameters(const lum_infra_params &params);
static void block_client_signals();
static int start_dom_thread();

lum_ctx *lum_get_ctx() { return &context; }

std::uint32_t lum_lib_init() {
  make_error_checking(start_up_mutex);
  std::uint32_t restart = 0;
  return lum_chkpt_init(lum_get_ctx(), &restart);
}

std::uint32_t lum_infra_init(const lum_infra_params *params) {
  library_hold lock(start_up_mutex, {"lum_infra_init", __LINE__}, after_failure::leave);
  if (lock.error() != 0) return static_cast<std::uint32_t>(lock.error());
  if (init_done == 1) {
    LUM_INFO(1, "init already done, returning EOK!\n");
    return 0;
  }
  make_error_checking(serial_mutex);
  copy_parameters(*params);
  lum_init_ctrace(params->evm);
  LUM_INFO(2, "In lum_infra_init ctrace init done!\n");
  const cerrno initialised = lum_modules_init(params->evm, params->restart);
  LUM_INFO(3, "rc of modules init = %d\n", initialised);
  init_done = 1;
  const cerrno recovered = lum_port_chkpt_recover(&context);
  LUM_INFO(4, "Checkpoint recover done with rc %d.\n", recovered);
  if (context.dom_thread_started != 0) {
    LUM_INFO(5, "DOM thread running already.\n");
    return recovered;
  }
  const int rc = start_dom_thread();
  if (params->pm_alarm_test != 0) lum_pm_alarm_test_init(params->evm, 0);
  return static_cast<std::uint32_t>(rc);
}

static void copy_parameters(const lum_infra_params &params) {
  context.evm = params.evm;
  context.restart = params.restart;
  context.client_data = params.client_data;
  shared_store(context.resync, 0);
  context.dom_reserved = 0;
  context.platform_cbs = *params.platform_cbs;
  if (params.process_name[0] != '\0') {
    strncpy_s(context.process_name, sizeof context.process_name, params.process_name,
              sizeof context.process_name - 1);
  } else {
    strncpy_s(context.process_name, sizeof context.process_name - 1, "lum_library",
              sizeof context.process_name - 2);
  }
}

static int start_dom_thread() {
  block_client_signals();
  const int rc = pthread_create(&context.dom_thread, nullptr, dom_thread, nullptr);
  if (rc != 0) {
    LUM_ERROR(6, "LUM DOM thread create failed rc:0x%x[%s]\n", rc,
              cerr_strerror(static_cast<cerrno>(rc)));
  } else {
    context.dom_thread_started = 1;
    LUM_INFO(7, "DOM thread created\n");
  }
  return rc;
}

// The two signals are the client's; the new thread and all later ones inherit the block.
static void block_client_signals() {
  const auto require = [](int rc, const char *condition) {
    if (rc != 0) fatal(condition, trace_area, __LINE__, "lum_infra_init");
  };
  sigset_t signals;
  require(sigemptyset(&signals), "sigemptyset(&signals) == 0");
  require(sigaddset(&signals, SIGRTMIN + 6), "sigaddset(&signals, SIGRTMIN + 6) == 0");
  require(sigaddset(&signals, SIGRTMIN + 10), "sigaddset(&signals, SIGRTMIN + 10) == 0");
  require(pthread_sigmask(SIG_BLOCK, &signals, nullptr),
          "pthread_sigmask(SIG_BLOCK, &signals, NULL) == 0");
}
