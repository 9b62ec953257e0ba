// The sweep at a port's creation, and the small hooks of the platform module.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "library.h"

namespace sweep_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_controller_interface";

class sweep : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    for (const uint32_t port : {6u, 7u, 8u}) add_port(rsip_at(3, 1, port));
    clear_record();
  }
};

TEST_F(sweep, cold_start_is_traced) {
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 3, 1, 7), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info(133, "entry\n").of(area),
                  info(136, "cold start for rsip:  0x30107 port_handle:0x1b07\n").of(area)));
}

TEST_F(sweep, restart_is_traced) {
  EXPECT_EQ(lum_module_sweep_hw_status(1, 0, 3, 1, 7), 0u);
  EXPECT_THAT(traces(), ElementsAre(info(133, "entry\n"),
                                    info(135,
                                         "sweep hw info on restart sucess for rsip:  0x30107 "
                                         "port_handle:0x1b07\n")
                                        .of(area)));
}

TEST_F(sweep, any_restart_word_but_0_is_a_restart) {
  lum_module_sweep_hw_status(0x80000000, 0, 3, 1, 7);
  EXPECT_THAT(traces().back(), starting("sweep hw info on restart sucess"));
}

TEST_F(sweep, port_that_is_not_there_traces_only_the_entry) {
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 3, 1, 9), 0u);
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 3, 2, 7), 0u);
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 4, 1, 7), 0u);
  EXPECT_EQ(lum_module_sweep_hw_status(0, 1, 3, 1, 7), 0u);
  EXPECT_THAT(traces(), testing::Each(info(133, "entry\n")));
}

TEST_F(sweep, whole_database_is_walked_without_its_mutex) {
  watch(lum_platform.mutex, "db");
  lum_module_sweep_hw_status(0, 0, 9, 9, 9);
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next", "pthread_mutex_trylock"}),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30106, 0)",
                          "wavl_get_next(0x30107, 0)", "wavl_get_next(0x30108, 0)"));
}

TEST_F(sweep, walk_goes_on_behind_the_port_that_matches) {
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 3, 1, 6), 0u);
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next"}),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30106, 0)",
                          "wavl_get_next(0x30107, 0)", "wavl_get_next(0x30108, 0)"));
}

TEST_F(sweep, failed_handle_lookup_ends_the_walk) {
  script.fail("wavl_search", 1, 1);
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 3, 1, 6), 22u);
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next"}), ElementsAre("wavl_get_first(0)"));
}

TEST_F(sweep, failed_handle_lookup_is_traced_and_22) {
  script.fail("wavl_search", 1, 1);
  EXPECT_EQ(lum_module_sweep_hw_status(0, 0, 3, 1, 7), 22u);
  EXPECT_THAT(traces(),
              ElementsAre(info(133, "entry\n"),
                          error(134, "port handle lookup failed for rsip: 0x30107\n").of(area)));
}

// ---- The listed ports ----

TEST_F(sweep, listed_ports_are_swept_with_the_contexts_restart_flag) {
  const uint32_t ports[] = {8, 6};
  EXPECT_EQ(lum_fill_initial_hw_info(0, 3, 1, 2, ports), 0u);
  lum_get_ctx()->restart = 1;
  EXPECT_EQ(lum_fill_initial_hw_info(0, 3, 1, 1, ports), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info("entry\n"), info("cold start for rsip:  0x30108 port_handle:0x1b08\n"),
                  info("entry\n"), info("cold start for rsip:  0x30106 port_handle:0x1b06\n"),
                  info("entry\n"),
                  info("sweep hw info on restart sucess for rsip:  0x30108 "
                       "port_handle:0x1b08\n")));
}

TEST_F(sweep, last_ports_result_is_returned) {
  const uint32_t ports[] = {6, 7};
  script.fail("wavl_search", 1, 1);
  EXPECT_EQ(lum_fill_initial_hw_info(0, 3, 1, 2, ports), 0u) << "the first failed";
  script.fail("wavl_search", 2, 1);
  EXPECT_EQ(lum_fill_initial_hw_info(0, 3, 1, 2, ports), 22u) << "the last failed";
}

TEST_F(sweep, no_ports_is_0_without_a_sweep) {
  EXPECT_EQ(lum_fill_initial_hw_info(0, 3, 1, 0, nullptr), 0u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(sweep, created_ports_are_swept) {
  create_ports(4, 0, {1, 2});
  EXPECT_THAT(traces(), testing::IsSupersetOf(
                            {info(136, "cold start for rsip:  0x40001 port_handle:0x2101\n"),
                             info(136, "cold start for rsip:  0x40002 port_handle:0x2102\n")}));
}

// ---- Hooks ----

TEST_F(sweep, platform_init_traces_and_returns_0) {
  EXPECT_EQ(lum_platform_init(0, 1), 0u);
  EXPECT_THAT(traces(), ElementsAre(info(137, "Inside LUM Platform Init\n").of(area)));
}

TEST(platform_module, is_initialised_during_start_up) {
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(traces(), lines_in_order({info("LUM PD Data Init\n"),
                                        info(137, "Inside LUM Platform Init\n").of(area),
                                        info("PD Module module initialisation succeeded\n")}));
}

TEST_F(sweep, module_unavailable_only_traces_each_port) {
  const uint32_t ports[] = {7, 8};
  lum_module_unavailable(0, 3, 1, 2, ports);
  lum_module_unavailable(0, 3, 1, 0, nullptr);
  EXPECT_THAT(traces(),
              ElementsAre(info(138, "module unvailable for r: s: i: p: 0/3/1/7\n").of(area),
                          info(138, "module unvailable for r: s: i: p: 0/3/1/8\n")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(sweep, deinit_port_only_traces_each_port) {
  const uint32_t ports[] = {7, 8};
  EXPECT_EQ(lum_deinit_port(1, 3, 1, 2, ports), 0u);
  EXPECT_EQ(lum_deinit_port(1, 3, 1, 0, nullptr), 0u);
  EXPECT_THAT(traces(), ElementsAre(info(139, " delete port (1 3 1 7)\n").of(area),
                                    info(139, " delete port (1 3 1 8)\n")));
  EXPECT_NE(lum_get_port_node_from_rsip(0x30107), nullptr);
}

TEST_F(sweep, deinit_port_returns_the_last_traces_result) {
  const uint32_t ports[] = {7, 8};
  script.fail("ctrace_internal", 1, 41);
  EXPECT_EQ(lum_deinit_port(0, 3, 1, 2, ports), 0u);
  script.fail("ctrace_internal", 2, 42);
  EXPECT_EQ(lum_deinit_port(0, 3, 1, 2, ports), 42u);
}

TEST_F(sweep, module_hw_status_is_always_0) { EXPECT_EQ(lum_module_get_hw_status(), 0u); }

}  // namespace

}  // namespace sweep_test
