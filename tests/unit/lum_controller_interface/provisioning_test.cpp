// Configuration on its way into the modules, write by write.
#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "provisioning_fixture.h"

namespace provisioning_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

namespace {

constexpr const char *area = "lum_controller_interface";

// ---- Bit 0x200: p2_setting ----

TEST_F(provisioning, p2_setting_of_sub_port_0_goes_to_page_2_at_194) {
  cfg(0).p2_setting = 77;  // 770 = 0x0302
  EXPECT_EQ(provision(0, bit_p2), 0u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 194, 0x03), wrote(2, 195, 0x02)));
}

TEST_F(provisioning, p2_setting_of_sub_port_1_goes_to_page_2_at_178) {
  cfg(1).p2_setting = 77;
  EXPECT_EQ(provision(1, bit_p2), 0u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 178, 0x03), wrote(2, 179, 0x02)));
}

TEST_F(provisioning, p2_setting_stays_on_page_2_on_the_newer_memory_map) {
  port().new_memmap = 1;
  cfg(0).p2_setting = 77;
  provision(0, bit_p2);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 194, 0x03), wrote(2, 195, 0x02)));
}

TEST_F(provisioning, bits_above_16_are_dropped) {
  cfg(0).p2_setting = 6554;  // 65540 = 0x10004
  provision(0, bit_p2);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 194, 0x00), wrote(2, 195, 0x04)));
}

// ---- Bit 0x10000000: the settings on the layout page ----

TEST_F(provisioning, settings_of_sub_port_0_go_to_page_3) {
  configure_settings(0);
  EXPECT_EQ(provision(0, bit_settings), 0u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 134, 0x01), wrote(3, 135, 0xE0),
                                       wrote(3, 136, 0x01), wrote(3, 137, 0x4A), wrote(3, 147, 1)));
}

TEST_F(provisioning, settings_of_sub_port_1_go_to_page_3_with_the_sub1_flag) {
  configure_settings(1);
  EXPECT_EQ(provision(1, bit_settings), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(wrote(3, 129, 0x01), wrote(3, 130, 0xE0), wrote(3, 131, 0x01),
                          wrote(3, 132, 0x4A), wrote(3, 150, 1), wrote(3, 146, 1)));
}

TEST_F(provisioning, bits_0x10000000_with_new_memmap_address_page_1_at_198_to_201_and_211) {
  port().new_memmap = 1;
  configure_settings(0);
  provision(0, bit_settings);
  EXPECT_THAT(transfers(), ElementsAre(wrote(1, 198, 0x01), wrote(1, 199, 0xE0),
                                       wrote(1, 200, 0x01), wrote(1, 201, 0x4A), wrote(1, 211, 1)));
}

TEST_F(provisioning, settings_of_sub_port_1_on_the_newer_memory_map) {
  port().new_memmap = 2;  // any value but 0
  configure_settings(1);
  provision(1, bit_settings);
  EXPECT_THAT(transfers(),
              ElementsAre(wrote(1, 193, 0x01), wrote(1, 194, 0xE0), wrote(1, 195, 0x01),
                          wrote(1, 196, 0x4A), wrote(1, 214, 1), wrote(1, 210, 1)));
}

TEST_F(provisioning, only_bit_0_of_the_flags_is_written) {
  cfg(1).enable_flag = 0xFFFFFFFE;
  cfg(1).sub1_flag = 0x101;
  provision(1, bit_settings);
  EXPECT_THAT(transfers(), IsSupersetOf({wrote(3, 150, 1), wrote(3, 146, 0)}));
}

TEST_F(provisioning, settings_wider_than_16_bits_are_cut) {
  cfg(0).setting_a = 0x123456;  // times 10 is 0xB60B5C
  cfg(0).setting_b = 0xFFFFFFFF;
  provision(0, bit_settings);
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 134, 0x0B), wrote(3, 135, 0x5C),
                                       wrote(3, 136, 0xFF), wrote(3, 137, 0xF6), wrote(3, 147, 0)));
}

// ---- Bit 0x40000: the mode ----

TEST_F(provisioning, mode_3_writes_2_mode_0_writes_1) {
  for (const uint32_t mode : {3u, 0u}) {
    cfg(0).mode = mode;
    provision(0, bit_mode);
  }
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 133, 2), wrote(3, 133, 1)));
}

TEST_F(provisioning, every_other_mode_writes_1) {
  for (const uint32_t mode : {1u, 2u, 4u, 0x103u, 0xFFFFFFFFu}) {
    cfg(0).mode = mode;
    clear_record();
    provision(0, bit_mode);
    EXPECT_THAT(transfers(), ElementsAre(wrote(3, 133, 1))) << mode;
  }
}

TEST_F(provisioning, mode_of_sub_port_1_goes_to_128) {
  cfg(1).mode = 3;
  provision(1, bit_mode);
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 128, 2)));
}

TEST_F(provisioning, mode_on_the_newer_memory_map_goes_to_page_1_at_197_and_192) {
  port().new_memmap = 1;
  cfg(0).mode = cfg(1).mode = 3;
  provision(0, bit_mode);
  provision(1, bit_mode);
  EXPECT_THAT(transfers(), ElementsAre(wrote(1, 197, 2), wrote(1, 192, 2)));
}

// ---- Bits together ----

TEST_F(provisioning, all_bits_of_sub_port_0_are_written_in_order) {
  configure_settings(0);
  cfg(0).p2_setting = 1;
  cfg(0).threshold = 2;
  cfg(0).mode = 3;
  EXPECT_EQ(provision(0, bit_p2 | bit_threshold | bit_settings | bit_mode), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(wrote(2, 194, 0), wrote(2, 195, 10), read_block(2, 146, 2),
                          wrote(2, 144, 0), wrote(2, 145, 120), wrote(2, 146, 0), wrote(2, 147, 20),
                          wrote(3, 134, 0x01), wrote(3, 135, 0xE0), wrote(3, 136, 0x01),
                          wrote(3, 137, 0x4A), wrote(3, 147, 1), wrote(3, 133, 2)));
}

TEST_F(provisioning, all_bits_of_sub_port_1_are_written_in_order) {
  configure_settings(1);
  cfg(1).p2_setting = 1;
  cfg(1).threshold = 2;
  EXPECT_EQ(provision(1, ~uint64_t{0}), 0u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 178, 0), wrote(2, 179, 10), read_block(2, 154, 2),
                                       wrote(2, 152, 0), wrote(2, 153, 120), wrote(2, 154, 0),
                                       wrote(2, 155, 20), wrote(3, 129, 0x01), wrote(3, 130, 0xE0),
                                       wrote(3, 131, 0x01), wrote(3, 132, 0x4A), wrote(3, 150, 1),
                                       wrote(3, 146, 1), wrote(3, 128, 1)));
}

TEST_F(provisioning, other_bits_write_nothing) {
  EXPECT_EQ(provision(0, ~(bit_p2 | bit_threshold | bit_settings | bit_mode)), 0u);
  EXPECT_EQ(provision(1, 0), 0u);
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(provisioning, dom_thread_reads_the_written_values_back_as_status) {
  for (const uint32_t sub_port : {0u, 1u}) {
    configure_settings(sub_port);
    cfg(sub_port).mode = sub_port == 0 ? 3 : 0;
    provision(sub_port, bit_settings | bit_mode);
  }
  set_controller_count(2);
  polling.run_cycle();
  EXPECT_THAT(port().dom[0].status, ElementsAre(1, 1, 2));
  EXPECT_THAT(port().dom[1].status, ElementsAre(1, 1, 1));
}

// ---- Traces ----

TEST_F(provisioning, sub_port_and_bits_are_traced) {
  provision(1, 0xABCD00000000);
  EXPECT_THAT(traces_of(area),
              ElementsAre(info(125, "subport 1 RSIP 0/3/1/7\n"),
                          info(126, "subport 1 changed bits: [0xabcd00000000] RSIP 0/3/1/7\n")));
  EXPECT_EQ(traces()[0].signature, "sdsddddd");
  EXPECT_EQ(traces()[1].signature, "sdsdDdddd");
}

TEST_F(provisioning, traces_come_after_the_lock_and_before_the_transfers) {
  watch(port().port_mutex, "port");
  provision(0, bit_mode);
  EXPECT_THAT(story({"pthread_mutex_trylock", "pthread_mutex_unlock", "i2c_write_byte"}),
              ElementsAre("pthread_mutex_trylock(port)", "LUM_INFO: subport 0 RSIP 0/3/1/7\n",
                          "LUM_INFO: subport 0 changed bits: [0x40000] RSIP 0/3/1/7\n",
                          wrote(3, 133, 1), "LUM_INFO: Write page 3 offset 85 val 1 on 1/7 rc 0\n",
                          "pthread_mutex_unlock(port)"));
}

// ---- Failures ----

TEST_F(provisioning, failed_writes_are_not_reported_and_the_others_are_made) {
  cfg(0).p2_setting = 0x100;
  script.fail_first("i2c_write_byte", 5, 9);
  EXPECT_EQ(provision(0, bit_p2 | bit_mode), 0u);
  EXPECT_EQ(module().at(2, 194), 0);
  EXPECT_THAT(transfers(), IsSupersetOf({wrote(2, 195, 0), wrote(3, 133, 1)}));
}

TEST_F(provisioning, busy_mutex_is_waited_for_under_the_functions_name_and_line) {
  script.fail("pthread_mutex_trylock", 1, EBUSY, &port().port_mutex);
  EXPECT_EQ(provision(0, bit_mode), 0u);
  EXPECT_THAT(calls({"ptd_set_mutex_block", "ptd_unset_mutex_block", "i2c_write_byte"}),
              ElementsAre("ptd_set_mutex_block(\"lum_provision_port_cfg_data\", 1398)",
                          "ptd_unset_mutex_block()", wrote(3, 133, 1)));
}

TEST_F(provisioning, failed_release_is_traced_and_the_traces_result_returned) {
  script.fail("pthread_mutex_unlock", 1, EPERM, &port().port_mutex);
  EXPECT_EQ(provision(0, 0), 0u) << "the trace succeeded";
  EXPECT_THAT(traces(), Contains(error(127, "module access unlock failed with rc 1 \n").of(area)));
  script.fail("pthread_mutex_trylock", 1, 0, &port().port_mutex);
  script.fail("pthread_mutex_unlock", 1, EPERM, &port().port_mutex);
  script.fail_always("ctrace_internal", 55);
  EXPECT_EQ(provision(0, 0), 55u);
}

TEST_F(provisioning, goes_on_without_a_mutex_that_cannot_be_taken) {
  script.fail("pthread_mutex_trylock", 1, EINVAL, &port().port_mutex);
  EXPECT_EQ(provision(0, bit_mode), 0u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 133, 1)));
  EXPECT_THAT(traces(), Contains(error(127, "module access unlock failed with rc 1 \n")));
}

TEST_F(provisioning, disabled_transceiver_is_not_written) {
  port().transceiver_disabled = 1;
  EXPECT_EQ(provision(0, bit_mode | bit_threshold), 0u);
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(provisioning, sub_port_out_of_range_and_null_are_refused) {
  EXPECT_EQ(lum_provision_port_cfg_data(2, &port(), bit_mode), 22u);
  EXPECT_EQ(lum_provision_port_cfg_data(0xFFFFFFFF, &port(), bit_mode), 22u);
  EXPECT_EQ(lum_provision_port_cfg_data(0, nullptr, bit_mode), 22u);
  EXPECT_THAT(transfers(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(provisioning, port_whose_deletion_was_refused_comes_back_without_writing) {
  lum_port_data &leaving = port();
  const uint32_t number = 7;
  script.fail_always("im_req_by_name", 99);
  std::thread([&] { EXPECT_EQ(lum_delete_ports(0, 3, 1, 1, &number), 99u); }).join();
  clear_record();
  std::thread([&] { lum_provision_port_cfg_data(0, &leaving, bit_mode); }).join();
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(provisioning, waits_for_the_holder_of_the_ports_mutex) {
  pthread_mutex_lock(&port().port_mutex);
  std::thread waiting([] { EXPECT_EQ(provision(0, bit_mode), 0u); });
  while (calls({"ptd_set_mutex_block"}).empty()) std::this_thread::yield();
  EXPECT_THAT(transfers(), IsEmpty());
  pthread_mutex_unlock(&port().port_mutex);
  waiting.join();
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 133, 1)));
}

TEST_F(provisioning, poll_and_pass_of_one_port_never_interleave) {
  set_controller_count(2);
  polling.start_cycle();
  for (int i = 0; i < 50; ++i) provision(0, bit_settings);
  polling.wait_asleep();
  std::vector<std::string> pass;
  for (const std::string &call : transfers()) {
    if (call.rfind("i2c_read", 0) == 0) {
      EXPECT_EQ(pass.size() % 5, 0u) << "a poll inside a pass";
    } else {
      pass.push_back(call);
    }
  }
  EXPECT_EQ(pass.size(), 250u);
}

TEST_F(provisioning, update_pushes_every_setting_ever_changed_of_both_sub_ports) {
  cfg(0).changed_bits = bit_mode;
  cfg(1).changed_bits = bit_mode | bit_p2;
  EXPECT_EQ(lum_update_port(0, 3, 1, 7, 1), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(wrote(3, 133, 1), wrote(2, 178, 0), wrote(2, 179, 0), wrote(3, 128, 1)));
}

}  // namespace

}  // namespace provisioning_test
