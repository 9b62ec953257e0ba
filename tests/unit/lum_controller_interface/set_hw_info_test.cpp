// Configuration that the management plane sets: which fields are taken over, written and saved.
#include <gmock/gmock.h>

#include <array>
#include <string>
#include <vector>

#include "one_port.h"

namespace set_hw_info_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char *area = "lum_controller_interface";

class set_hw_info : public one_port {
 protected:
  void SetUp() override {
    one_port::SetUp();
    // Every word holds its own position.
    for (uint32_t at = 0; at < 1152; at += 4) put_word<uint32_t>(record, at, at);
  }
  static lum_port_cfg &cfg(uint32_t sub_port) { return port().port_cfg[sub_port]; }
  cerrno set(uint32_t ifhandle, uint64_t bits) {
    return lum_set_hw_info(1, &ifhandle, &record, &bits);
  }
  // threshold, p2_setting, setting_a, setting_b, enable_flag, mode, sub1_flag
  static std::array<uint32_t, 7> fields(uint32_t sub_port) {
    const lum_port_cfg &c = cfg(sub_port);
    return {c.threshold,   c.p2_setting, c.setting_a, c.setting_b,
            c.enable_flag, c.mode,       c.sub1_flag};
  }
  lum_hw_info_in record = {};
};

// ---- Fields ----

TEST_F(set_hw_info, bit_0x2_takes_the_threshold_over) {
  EXPECT_EQ(set(handle_0, 0x2), 0u);
  EXPECT_THAT(fields(0), ElementsAre(48, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(fields(1), ElementsAre(0, 0, 0, 0, 0, 0, 0));
}

TEST_F(set_hw_info, bit_0x200_takes_the_p2_setting_over) {
  EXPECT_EQ(set(handle_0, 0x200), 0u);
  EXPECT_THAT(fields(0), ElementsAre(0, 56, 0, 0, 0, 0, 0));
}

TEST_F(set_hw_info, bit_0x40000_takes_the_mode_over) {
  EXPECT_EQ(set(handle_0, 0x40000), 0u);
  EXPECT_THAT(fields(0), ElementsAre(0, 0, 0, 0, 0, 96, 0));
}

TEST_F(set_hw_info, bit_0x10000000_takes_four_fields_over) {
  EXPECT_EQ(set(handle_0, 0x10000000), 0u);
  EXPECT_THAT(fields(0), ElementsAre(0, 0, 564, 600, 584, 0, 580));
}

TEST_F(set_hw_info, all_bits_take_everything_over) {
  EXPECT_EQ(set(handle_1, 0x10040202), 0u);
  EXPECT_THAT(fields(1), ElementsAre(48, 56, 564, 600, 584, 96, 580));
  EXPECT_THAT(fields(0), ElementsAre(0, 0, 0, 0, 0, 0, 0));
}

TEST_F(set_hw_info, other_bits_are_only_kept) {
  EXPECT_EQ(set(handle_0, 0x8000000000000001), 0u);
  EXPECT_THAT(fields(0), ElementsAre(0, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(cfg(0).changed_bits, 0x8000000000000001u);
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(set_hw_info, changed_bits_are_collected_and_never_cleared) {
  set(handle_0, 0x2);
  set(handle_0, 0x40000);
  set(handle_1, 0x200);
  EXPECT_EQ(cfg(0).changed_bits, 0x40002u);
  EXPECT_EQ(cfg(1).changed_bits, 0x200u);
}

TEST_F(set_hw_info, only_the_bits_of_the_call_are_written) {
  set(handle_0, 0x40000);
  clear_record();
  set(handle_0, 0x200);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 194, 0x02), wrote(2, 195, 0x30)));
}

TEST_F(set_hw_info, any_handle_but_that_of_sub_port_0_means_sub_port_1) {
  EXPECT_EQ(set(foreign_handle, 0x40000), 0u);
  EXPECT_EQ(cfg(0).mode, 0u);
  EXPECT_EQ(cfg(1).mode, 96u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 128, 1)));
}

// ---- Order, saving, results ----

TEST_F(set_hw_info, port_is_provisioned_then_saved) {
  EXPECT_EQ(set(handle_0, 0x40000), 0u);
  EXPECT_THAT(calls({"i2c_write_byte", "chkpt_create", "chkpt_save"}),
              ElementsAre(wrote(3, 133, 1), "chkpt_create(0xc0de, 0x30107)",
                          "chkpt_save(0xc0de, 0x501, 96)"));
  const lum_chkpt_record saved = checkpoints.record(rsip);
  EXPECT_EQ(saved.port_cfg[0].mode, 96u);
  EXPECT_EQ(saved.port_cfg[0].changed_bits, 0x40000u);
}

TEST_F(set_hw_info, ports_mutex_is_released_before_the_save) {
  watch(port().port_mutex, "port");
  set(handle_0, 0x40000);
  EXPECT_THAT(
      calls({"pthread_mutex_trylock", "i2c_write_byte", "pthread_mutex_unlock", "chkpt_save"}),
      ElementsAre("pthread_mutex_trylock(port)", wrote(3, 133, 1), "pthread_mutex_unlock(port)",
                  "chkpt_save(0xc0de, 0x501, 96)"));
}

TEST_F(set_hw_info, configuration_changes_between_the_ports_trace_and_its_provisioning) {
  std::vector<uint32_t> seen;
  at_trace = [&](const trace_line &line) {
    const bool changed = line.point == 125;
    if (line.point != 124 && !changed) return;
    seen.push_back(line.point);
    EXPECT_EQ(cfg(0).changed_bits, changed ? 0x40000u : 0u);
    EXPECT_EQ(cfg(0).mode, changed ? 96u : 0u);
  };
  set(handle_0, 0x40000);
  EXPECT_THAT(seen, ElementsAre(124, 125));
}

TEST_F(set_hw_info, steps_are_traced) {
  set(handle_0, 0x10000000000);
  const std::vector<trace_line> lines = traces_of(area);
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_THAT(lines[0], info(119, "set hw info num ports 1\n"));
  EXPECT_THAT(lines[1], info(122, "index 0 ifh 0x801 changed bits [0x10000000000]\n"));
  EXPECT_THAT(lines[2].text,
              testing::MatchesRegex("index 0 port_node: 0x[0-9a-f]+ rsip: 0x30107\n"));
  EXPECT_EQ(lines[2].point, 123u);
  EXPECT_EQ(lines[2].signature, "sdsdDd");
  EXPECT_THAT(lines[3].text, testing::MatchesRegex("index 0 port_data: 0x[0-9a-f]+\n"));
  EXPECT_EQ(lines[3].point, 124u);
  EXPECT_THAT(lines[4], info(125, "subport 0 RSIP 0/3/1/7\n"));
}

TEST_F(set_hw_info, several_handles_are_handled_in_order) {
  const uint32_t handles[] = {handle_1, handle_0};
  const lum_hw_info_in records[] = {record, {}};
  const uint64_t bits[] = {0x200, 0x40000};
  EXPECT_EQ(lum_set_hw_info(2, handles, records, bits), 0u);
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 178, 0x02), wrote(2, 179, 0x30), wrote(3, 133, 1)));
  EXPECT_THAT(traces_of(area), Contains(info("index 1 ifh 0x801 changed bits [0x40000]\n")));
  EXPECT_THAT(calls({"chkpt_save"}), SizeIs(2));
}

TEST_F(set_hw_info, last_checkpoint_save_is_the_result) {
  const uint32_t handles[] = {handle_0, handle_1};
  const lum_hw_info_in records[2] = {};
  const uint64_t bits[] = {0x40000, 0x40000};
  script.fail("chkpt_save", 1, 71);
  EXPECT_EQ(lum_set_hw_info(2, handles, records, bits), 0u);
  script.forget();
  script.fail("chkpt_save", 2, 72);
  EXPECT_EQ(lum_set_hw_info(2, handles, records, bits), 72u);
}

TEST_F(set_hw_info, failed_writes_still_change_configuration_and_checkpoint) {
  module().fail_transfers(5);
  EXPECT_EQ(set(handle_0, 0x40000), 0u);
  EXPECT_EQ(cfg(0).mode, 96u);
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[0].mode, 96u);
}

TEST_F(set_hw_info, later_update_pushes_what_a_failed_write_left_out) {
  module().fail_transfers(5);
  put_word<uint32_t>(record, 96, 3);
  set(handle_0, 0x40000);
  module().fail_transfers(0);
  EXPECT_EQ(lum_update_port(0, 3, 1, 7, 3), 0u);
  EXPECT_EQ(module().at(3, 133), 2);
}

TEST_F(set_hw_info, port_without_a_module_is_still_configured_and_saved) {
  modules.remove(3, 1, 7);
  port().transceiver_disabled = 1;
  EXPECT_EQ(set(handle_0, 0x40000), 0u);
  EXPECT_THAT(transfers(), IsEmpty());
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[0].mode, 96u);
}

// ---- Unknown handles ----

TEST_F(set_hw_info, unknown_handle_ends_the_call_with_the_ports_before_it_handled) {
  add_port_with_handles(8, 0x2001, 0x2002);
  clear_record();
  const uint32_t handles[] = {handle_0, 0x9999, 0x2001};
  const lum_hw_info_in records[3] = {};
  const uint64_t bits[] = {0x40000, 0x40000, 0x40000};
  EXPECT_EQ(lum_set_hw_info(3, handles, records, bits), 0u) << "the last save's result";
  EXPECT_THAT(transfers(), ElementsAre(wrote(3, 133, 1)));
  EXPECT_THAT(calls({"chkpt_save"}), SizeIs(1));
  EXPECT_EQ(data_at(0x30108).port_cfg[0].changed_bits, 0u);
  EXPECT_THAT(traces_of(area), Contains(info(123, "index 1 port_node: (nil) rsip: 0x0\n")));
  EXPECT_THAT(traces_of(area).back(), info(123, "index 1 port_node: (nil) rsip: 0x0\n"));
}

TEST_F(set_hw_info, first_handle_unknown_is_22) {
  EXPECT_EQ(set(0x9999, 0x40000), 22u);
  EXPECT_THAT(calls({"chkpt_save", "i2c_write_byte"}), IsEmpty());
}

TEST_F(set_hw_info, name_whose_port_is_not_in_the_database_ends_the_call) {
  client.set_name(0x9999, "Ots0_3_1_9_0");
  EXPECT_EQ(set(0x9999, 0x40000), 22u);
  EXPECT_THAT(traces_of(area).back(), info(123, "index 0 port_node: (nil) rsip: 0x30109\n"));
}

// ---- Arguments ----

TEST_F(set_hw_info, missing_arrays_are_traced_and_refused) {
  const uint32_t handle = handle_0;
  const uint64_t bits = 0x40000;
  EXPECT_EQ(lum_set_hw_info(1, nullptr, &record, &bits), 22u);
  EXPECT_EQ(lum_set_hw_info(0, &handle, nullptr, &bits), 22u);
  EXPECT_THAT(traces(),
              ElementsAre(info(119, "set hw info num ports 1\n").of(area),
                          error(120, "Invalid i/p params in retrieve hw info cb fn").of(area),
                          info(119, "set hw info num ports 0\n"),
                          error(120, "Invalid i/p params in retrieve hw info cb fn")));
}

TEST_F(set_hw_info, count_below_1_is_traced_and_refused) {
  const uint32_t handle = handle_0;
  const uint64_t bits = 0x40000;
  EXPECT_EQ(lum_set_hw_info(0, &handle, &record, &bits), 22u);
  EXPECT_EQ(lum_set_hw_info(-5, &handle, &record, &bits), 22u);
  EXPECT_THAT(traces(), ElementsAre(info("set hw info num ports 0\n"),
                                    error(121, "Invalid count in retrieve hw cb").of(area),
                                    info("set hw info num ports -5\n"),
                                    error(121, "Invalid count in retrieve hw cb")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(set_hw_info, missing_change_bits_are_refused) {
  const uint32_t handle = handle_0;
  EXPECT_EQ(lum_set_hw_info(1, &handle, &record, nullptr), 22u);
  EXPECT_THAT(calls({"chkpt_save", "i2c_write_byte"}), IsEmpty());
}

TEST_F(set_hw_info, by_ifh_is_the_same) {
  const uint32_t handle = handle_0;
  const uint64_t bits = 0x200;
  EXPECT_EQ(lum_set_hw_info_by_ifh(1, &handle, &record, &bits), 0u);
  EXPECT_EQ(cfg(0).p2_setting, 56u);
  EXPECT_EQ(lum_set_hw_info_by_ifh(0, &handle, &record, &bits), 22u);
}

}  // namespace

}  // namespace set_hw_info_test
