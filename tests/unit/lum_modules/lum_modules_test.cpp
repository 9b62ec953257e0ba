// The module table.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "library.h"
#include "lum_modules.h"

namespace lum_modules_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t rsip = 0x30007;
constexpr const char *known_name = "Ots0_3_0_7_1";

// What the hooks put into the table have seen.
struct hook_call {
  std::string hook;
  lum_device_id_td port;
  const void *argument;
};
std::vector<hook_call> &hook_calls() {
  static std::vector<hook_call> seen;
  return seen;
}

template <char Letter, cerrno Result = 0>
cerrno create_hook(const lum_device_id_td *port, const void *argument) {
  hook_calls().push_back({std::string("create ") + Letter, *port, argument});
  return Result;
}

template <char Letter, cerrno Result = 0>
cerrno delete_hook(const lum_device_id_td *port) {
  hook_calls().push_back({std::string("delete ") + Letter, *port, nullptr});
  return Result;
}

std::vector<std::string> hooks_called() {
  std::vector<std::string> names;
  for (const hook_call &each : hook_calls()) names.push_back(each.hook);
  return names;
}

bool is_empty(const lum_device_id_td &port) {
  const lum_device_id_td nothing = {};
  return std::memcmp(&port, &nothing, offsetof(lum_device_id_td, ifname) + sizeof port.ifname) == 0;
}

cerrno succeed(event_manager, uint32_t) {
  record_call("succeed", {});
  return 0;
}
cerrno refuse(event_manager, uint32_t) {
  record_call("refuse", {});
  return 44;
}

cerrno tell_arguments(event_manager evm, uint32_t restart) {
  note("init", hex{evm}, restart);
  return 0;
}

// ---- The table itself ----

TEST(module_table, holds_three_modules_without_port_hooks) {
  const auto table = lum::lum_module_table();
  ASSERT_EQ(table.size(), 3u);
  EXPECT_STREQ(table[0].name, "PD Data Module");
  EXPECT_EQ(table[0].init, lum_platform_data_init);
  EXPECT_STREQ(table[1].name, "PD Module");
  EXPECT_EQ(table[1].init, lum_platform_init);
  EXPECT_STREQ(table[2].name, "SERVER");
  EXPECT_EQ(table[2].init, lum_server_module_init);
  for (const lum::lum_module &module : table) {
    EXPECT_EQ(module.init_done, 0u);
    EXPECT_EQ(module.port_create, nullptr);
    EXPECT_EQ(module.port_delete, nullptr);
  }
}

// ---- Initialisation ----

class modules_init : public testing::Test {
 protected:
  void SetUp() override {
    open_traces();
    for (lum::lum_module &module : table) module.init = succeed;
  }
  std::span<lum::lum_module> table = lum::lum_module_table();
};

TEST_F(modules_init, goes_in_table_order_and_marks_each) {
  EXPECT_EQ(lum_modules_init(client_manager, 0), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info("PD Data Module module initialisation succeeded\n").of("lum_modules"),
                  info("PD Module module initialisation succeeded\n"),
                  info("SERVER module initialisation succeeded\n")));
  for (const lum::lum_module &module : table) EXPECT_EQ(module.init_done, 1u);
}

TEST_F(modules_init, gives_each_the_event_manager_and_the_restart_flag) {
  for (lum::lum_module &module : table) module.init = tell_arguments;
  EXPECT_EQ(lum_modules_init(0x45, 9), 0u);
  EXPECT_THAT(calls(), ElementsAre("init(0x45, 9)", "init(0x45, 9)", "init(0x45, 9)"));
}

TEST_F(modules_init, second_call_finds_all_done) {
  EXPECT_EQ(lum_modules_init(client_manager, 0), 0u);
  clear_record();
  EXPECT_EQ(lum_modules_init(client_manager, 0), 0u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(),
              ElementsAre(info("all module initialisation already done\n").of("lum_modules")));
}

TEST_F(modules_init, stops_at_the_failing_module_and_resumes_there) {
  table[1].init = refuse;
  EXPECT_EQ(lum_modules_init(client_manager, 0), 44u);
  EXPECT_THAT(calls(), ElementsAre("succeed()", "refuse()"));
  EXPECT_THAT(traces(),
              ElementsAre(info("PD Data Module module initialisation succeeded\n"),
                          error("PD Module module initialisation has failed\n").of("lum_modules")));
  EXPECT_EQ(table[1].init_done, 0u);
  EXPECT_EQ(table[2].init_done, 0u);

  clear_record();
  table[1].init = succeed;
  EXPECT_EQ(lum_modules_init(client_manager, 0), 0u);
  EXPECT_THAT(calls(), ElementsAre("succeed()", "succeed()"));
  EXPECT_THAT(traces(), ElementsAre(info("PD Module module initialisation succeeded\n"),
                                    info("SERVER module initialisation succeeded\n")));
  EXPECT_THAT(table[2].init_done, 1u);
}

// ---- Port hooks ----

class module_hooks : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(rsip);
    ASSERT_EQ(lum_update_ifhandle(known_name, 0x77), 0u);
    clear_record();
  }
  std::span<lum::lum_module> table = lum::lum_module_table();
};

TEST_F(module_hooks, create_tells_every_module_that_has_a_hook) {
  table[0].port_create = create_hook<'a'>;
  table[2].port_create = create_hook<'c'>;
  const int argument = 0;
  EXPECT_EQ(lum_modules_port_create(known_name, &argument), 0u);
  ASSERT_THAT(hooks_called(), ElementsAre("create a", "create c"));
  EXPECT_EQ(hook_calls()[0].argument, &argument);
  EXPECT_STREQ(hook_calls()[0].port.ifname, known_name);
  EXPECT_EQ(hook_calls()[0].port.ifhandle, 0x77u);
}

TEST_F(module_hooks, failing_create_hook_is_traced_and_the_walk_goes_on) {
  table[0].port_create = create_hook<'a', 12>;
  table[1].port_create = create_hook<'b'>;
  EXPECT_EQ(lum_modules_port_create(known_name, nullptr), 0u);
  EXPECT_THAT(hooks_called(), ElementsAre("create a", "create b"));
  EXPECT_THAT(traces(), ElementsAre(error("create handler failed for ifname:Ots0_3_0_7_1, module: "
                                          "PD Data Module rc:0xc[error 12]\n")
                                        .of("lum_modules")));
}

TEST_F(module_hooks, create_with_an_unknown_name_calls_no_hook_and_returns_the_look_ups_code) {
  table[0].port_create = create_hook<'a'>;
  EXPECT_EQ(lum_modules_port_create("Ots0_9_9_9_0", nullptr), 0xFFFFFFFFu);
  EXPECT_THAT(hooks_called(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(error("failed to get devinfo for ifname:Ots0_9_9_9_0, "
                                          "rc:0xffffffff[error 4294967295]\n")
                                        .of("lum_modules")));
}

TEST_F(module_hooks, create_with_a_name_that_does_not_parse_returns_the_parsers_code) {
  table[0].port_create = create_hook<'a'>;
  script.fail("imc_ifname_parse", 1, 91);
  EXPECT_EQ(lum_modules_port_create("nonsense", nullptr), 91u);
  EXPECT_THAT(hooks_called(), IsEmpty());
  EXPECT_THAT(traces(), Contains(error("failed to get devinfo for ifname:nonsense, "
                                       "rc:0x5b[error 91]\n")));
}

TEST_F(module_hooks, delete_tells_every_module_that_has_a_hook) {
  table[1].port_delete = delete_hook<'b'>;
  table[2].port_delete = delete_hook<'c'>;
  EXPECT_EQ(lum_modules_port_delete(known_name), 0u);
  EXPECT_THAT(hooks_called(), ElementsAre("delete b", "delete c"));
  EXPECT_EQ(hook_calls()[0].port.ifhandle, 0x77u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(module_hooks, delete_with_an_unknown_name_still_calls_every_hook_and_returns_0) {
  table[0].port_delete = delete_hook<'a'>;
  table[2].port_delete = delete_hook<'c'>;
  EXPECT_EQ(lum_modules_port_delete("Ots0_9_9_9_0"), 0u);
  EXPECT_THAT(hooks_called(), ElementsAre("delete a", "delete c"));
  EXPECT_THAT(traces(), ElementsAre(error("Failed to get devinfo for ifname:Ots0_9_9_9_0, "
                                          "rc:0xffffffff[error 4294967295]\n")
                                        .of("lum_modules")));
  for (const hook_call &each : hook_calls()) EXPECT_TRUE(is_empty(each.port));
}

TEST_F(module_hooks, delete_with_a_name_that_does_not_parse_still_calls_every_hook) {
  table[0].port_delete = delete_hook<'a'>;
  table[2].port_delete = delete_hook<'c'>;
  script.fail("imc_ifname_parse", 1, 91);
  EXPECT_EQ(lum_modules_port_delete("nonsense"), 0u);
  EXPECT_THAT(hooks_called(), ElementsAre("delete a", "delete c"));
  for (const hook_call &each : hook_calls()) EXPECT_TRUE(is_empty(each.port));
  EXPECT_THAT(traces(), Contains(error("Failed to get devinfo for ifname:nonsense, "
                                       "rc:0x5b[error 91]\n")
                                     .of("lum_modules")));
}

TEST_F(module_hooks, failing_delete_hook_is_traced_and_the_walk_goes_on) {
  table[0].port_delete = delete_hook<'a', 5>;
  table[1].port_delete = delete_hook<'b'>;
  EXPECT_EQ(lum_modules_port_delete(known_name), 0u);
  EXPECT_THAT(hooks_called(), ElementsAre("delete a", "delete b"));
  EXPECT_THAT(traces(), ElementsAre(error("delete handler failed for ifname:Ots0_3_0_7_1, module: "
                                          "PD Data Module rc:0x5[error 5]\n")
                                        .of("lum_modules")));
}

TEST_F(module_hooks, with_the_built_in_table_only_the_look_up_is_made) {
  EXPECT_EQ(lum_modules_port_create(known_name, nullptr), 0u);
  EXPECT_EQ(lum_modules_port_delete(known_name), 0u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(calls({"imc_ifname_parse"}).size(), 2u);
}

}  // namespace

}  // namespace lum_modules_test
