// The four trace channels.
#include "base/trace.h"
#include "trace_digest.h"

using namespace lum;

ctrace_handle ct_err;
ctrace_handle ct_info;
ctrace_handle ct_debug;
ctrace_handle ct_periodic;

namespace {

struct channel {
  ctrace_handle *handle;
  const char *name;
  std::uint32_t size;  // bytes
  const char *open_failed;
  const char *configuration_failed;
};

constexpr channel channels[] = {
    {&ct_err, "lum_error", 0x200000, "LUM : Unable to open err ctrace\n",
     "LUM : ctrace_enable_configuration failed: err ctrace\n"},
    {&ct_info, "lum_info", 0x400000, "LUM : Unable to open info ctrace\n",
     "LUM : ctrace_enable_configuration failed: info ctrace\n"},
    {&ct_debug, "lum_debug", 0x400000, "LUM : Unable to open debug ctrace\n",
     "LUM : ctrace_enable_configuration failed: debug ctrace\n"},
    {&ct_periodic, "lum_periodic", 0x80000, "LUM : Unable to open periodic ctrace\n",
     "LUM : ctrace_enable_configuration failed: periodic ctrace\n"},
};

constexpr std::uint32_t failed = 0xFFFFFFFF;

}  // namespace

std::uint32_t lum_init_ctrace(event_manager evm) {
  void *local = event_manager_levm_get(evm);
  if (local == nullptr) tern_syslog(0, "LUM : %s failed\n", "lum_init_ctrace");
  ctrace_set_process_name(lum_get_ctx()->process_name);
  for (const channel &c : channels) {
    if (ctrace_open_internal(c.handle, c.name, c.size, trace_points, "liblum_ctrace_dir",
                             LUM_TRACE_DIGEST, 0) != 0) {
      tern_syslog(0, "%s", c.open_failed);
      return failed;
    }
    if (ctrace_enable_configuration(*c.handle, local) != 0) {
      tern_syslog(0, "%s", c.configuration_failed);
      return failed;
    }
  }
  return 0;
}

std::uint32_t lum_close_ctrace() {
  for (const channel &c : channels) ctrace_dump(*c.handle);
  for (const channel &c : channels) ctrace_close(*c.handle);
  return 0;
}
