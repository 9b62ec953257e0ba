// Every function that the library exports is tried while the platform fails, and nothing else.
#include <gmock/gmock.h>

#include <fstream>
#include <set>
#include <string>

#include "calls.h"

namespace exported_calls_test {

using namespace failing_platform;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

namespace {

const std::set<std::string> variables = {"ct_debug",
                                         "ct_err",
                                         "ct_info",
                                         "ct_periodic",
                                         "lum_platform",
                                         "lum_pending_provisioning",
                                         "ots_async_op",
                                         "lum_prov_in_progress",
                                         "prov_lock",
                                         "lum_prov_pulse_sent",
                                         "test_string",
                                         "prov_handler_run_count",
                                         "prov_thread_init_done"};

std::set<std::string> exported_functions() {
  std::set<std::string> names;
  std::ifstream map(LUM_VERSION_SCRIPT);
  for (std::string line; std::getline(map, line) && line.find("local:") == std::string::npos;) {
    const std::size_t end = line.find(';');
    if (end == std::string::npos) continue;
    const std::size_t start = line.find_first_not_of(' ');
    const std::string name = line.substr(start, end - start);
    if (!variables.contains(name)) names.insert(name);
  }
  return names;
}

template <typename Table>
void add_names(const Table &table, std::set<std::string> &names) {
  for (const auto &[name, call] : table) {
    if (name.front() != '(') names.insert(name.substr(0, name.find(' ')));
  }
}

}  // namespace

TEST(failing_platform, is_tried_with_every_exported_function) {
  const std::set<std::string> exported = exported_functions();
  ASSERT_THAT(exported, Not(IsEmpty()));
  std::set<std::string> tried;
  add_names(port_calls(), tried);
  add_names(plain_calls(), tried);
  add_names(start_up_calls(), tried);
  EXPECT_THAT(tried, ElementsAreArray(exported));
}

}  // namespace exported_calls_test
