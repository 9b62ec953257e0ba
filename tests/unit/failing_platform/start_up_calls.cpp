// The calls of a start.
#include <cstring>

#include "calls.h"
#include "library.h"

namespace failing_platform {

using namespace support;

namespace {

uint32_t start_as_restarted() {
  lum_infra_params params = parameters();
  params.restart = 1;
  params.pm_alarm_test = 1;
  std::strcpy(params.process_name, "optics_driver");
  return lum_infra_init(&params);
}

uint32_t start_checkpoints() {
  uint32_t restart = 0;
  return lum_chkpt_init(lum_get_ctx(), &restart);
}

}  // namespace

const std::map<std::string, start_up_call> &start_up_calls() {
  static const auto &all = *new std::map<std::string, start_up_call>{
      {"lum_chkpt_init", {false, start_checkpoints}},
      {"lum_infra_init", {true, start_as_restarted}},
      {"lum_init_ctrace", {false, [] { return lum_init_ctrace(client_manager); }}},
      {"lum_lib_init", {false, lum_lib_init}},
      {"lum_modules_init", {true, [] { return lum_modules_init(client_manager, 0); }}},
      {"lum_platform_data_init", {true, [] { return lum_platform_data_init(client_manager, 0); }}},
      {"lum_platform_init", {true, [] { return lum_platform_init(client_manager, 0); }}},
      {"lum_ports_db_init", {true, lum_ports_db_init}},
      {"lum_server_module_init", {true, [] { return lum_server_module_init(client_manager, 0); }}},
  };
  return all;
}

}  // namespace failing_platform
