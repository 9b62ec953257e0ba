// What the entity agent's batches do, through the registration that its service holds.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "lum_modules.h"
#include "one_port.h"

namespace ea_dispatch_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_server";
constexpr uint32_t resync_end = 0, create = 1, update = 2, get_info = 3, remove_op = 4;

// A request and its reply, at the positions that the entity-agent service gives them.
class ea_batch {
 public:
  void add(const std::string &name, uint32_t ifhandle, uint8_t admin = 0, uint8_t ready = 0) {
    const std::size_t at = 16 + count_ * 1240;
    request_.resize(at + 1240, 0xDD);
    std::memset(&request_[at], 0, 64);
    std::memcpy(&request_[at], name.data(), std::min<std::size_t>(name.size(), 64));
    std::memcpy(&request_[at + 64], &ifhandle, 4);
    request_[at + 76] = admin;
    request_[at + 77] = ready;
    ++count_;
    std::memcpy(&request_[8], &count_, 4);
    reply_.resize(16 + count_ * 3456, 0xCC);
  }
  void dispatch(uint32_t operation) {
    events.entity_agent.dispatch(operation, request_.data(), reply_.data());
  }
  // Positions of the reply bytes that were written.
  std::vector<std::size_t> written() const {
    std::vector<std::size_t> found;
    for (std::size_t at = 0; at < reply_.size(); ++at) {
      if (reply_[at] != 0xCC) found.push_back(at);
    }
    return found;
  }
  uint8_t reply_at(std::size_t at) const { return reply_[at]; }

 private:
  uint32_t count_ = 0;
  std::vector<uint8_t> request_ = std::vector<uint8_t>(16, 0);
  std::vector<uint8_t> reply_ = std::vector<uint8_t>(16, 0xCC);
};

line_matcher received(const std::string &type, const std::string &count) {
  return info(264, "Inside Dispatch Handler, received oper-type " + type + " and interfaces " +
                       count + "\n")
      .of(area);
}
line_matcher serving(const std::string &name, const std::string &ifhandle,
                     const std::string &admin = "0", const std::string &ready = "0") {
  return info(67, "***Servicing " + name + " for Optics ifhandle " + ifhandle +
                      " admin status = " + admin + " state ready = " + ready + " ***\n")
      .of("lum_ots_ea_hdlr");
}

class ea_dispatch : public one_port {
 protected:
  static std::vector<trace_line> lines() {
    std::vector<trace_line> found;
    for (const trace_line &line : traces()) {
      if (line.file == area || line.file == "lum_ots_ea_hdlr") found.push_back(line);
    }
    return found;
  }
  static std::size_t wakeups() { return calls({"event_send_async"}).size(); }
  ea_batch batch;
};

// ---- Create ----

TEST_F(ea_dispatch, create_records_the_handle_services_the_interface_and_wakes_provisioning) {
  batch.add("Ots0_3_1_7_1", 0x4242, 1, 2);
  batch.dispatch(create);
  EXPECT_THAT(lines(),
              ElementsAre(received("1", "1"),
                          info(266, "Create Oper: Ifhandle : 0x4242, Ifname: Ots0_3_1_7_1\n"),
                          serving("CREATE", "0x4242", "1", "2"),
                          info("Entering lum_wakeup_provisioning_thread\n"),
                          info("Exiting lum_wakeup_provisioning_thread\n")));
  EXPECT_EQ(port().sub_port[1].ifhandle, 0x4242u);
  EXPECT_EQ(port().device_id[1].ifhandle, 0x4242u);
  EXPECT_EQ(wakeups(), 1u);
}

TEST_F(ea_dispatch, signatures_of_the_create_traces) {
  batch.add("Ots0_3_1_7_1", 0x4242);
  batch.dispatch(create);
  EXPECT_EQ(lines()[0].signature, "sdsdd");
  EXPECT_EQ(lines()[1].signature, "sdsds");
  EXPECT_EQ(lines()[2].signature, "sdssddd");
}

std::string announced;

cerrno announce(const lum_device_id_td *port, const void *argument) {
  announced += std::string(port->ifname) + " " + static_cast<const char *>(argument) + ";";
  return 0;
}

TEST_F(ea_dispatch, create_announces_the_port_with_its_name_as_the_argument) {
  lum::lum_module_table()[1].port_create = announce;
  batch.add("Ots0_3_1_7_0", 0x4242);
  batch.add("Ots0_3_1_9_0", 0x4243);
  batch.dispatch(create);
  EXPECT_EQ(announced, "Ots0_3_1_7_0 Ots0_3_1_7_0;") << "the unknown port is not announced";
}

TEST_F(ea_dispatch, create_whose_handle_cannot_be_recorded_still_services_and_wakes) {
  batch.add("Ots0_3_1_9_0", 0x4242);
  batch.dispatch(create);
  EXPECT_THAT(
      lines(),
      ElementsAre(
          received("1", "1"),
          info(266, "Create Oper: Ifhandle : 0x4242, Ifname: Ots0_3_1_9_0\n").of(area),
          error(267, "failed to create dev map. intf_name Ots0_3_1_9_0 ifhandle 0x4242 rc 22\n")
              .of(area),
          serving("CREATE", "0x4242"), starting("Entering"), starting("Exiting")));
  EXPECT_EQ(wakeups(), 1u);
}

TEST_F(ea_dispatch, create_of_a_name_without_an_end_reads_no_further_than_the_field) {
  batch.add(std::string(64, 'O'), 0x4242);
  batch.dispatch(create);
  EXPECT_THAT(
      lines(),
      Contains(info("Create Oper: Ifhandle : 0x4242, Ifname: " + std::string(64, 'O') + "\n")));
  EXPECT_THAT(lines(), Contains(starting("failed to create dev map. intf_name OOO")));
}

TEST_F(ea_dispatch, create_of_an_empty_name_fails_and_is_serviced) {
  batch.add("", 0x4242);
  batch.dispatch(create);
  EXPECT_THAT(lines(), Contains(starting("failed to create dev map. intf_name  ifhandle")));
  EXPECT_THAT(lines(), Contains(serving("CREATE", "0x4242")));
}

TEST_F(ea_dispatch, create_of_a_sub_port_out_of_range_fails) {
  batch.add("Ots0_3_1_7_2", 0x4242);
  batch.dispatch(create);
  EXPECT_THAT(lines(), Contains(error(267,
                                      "failed to create dev map. intf_name Ots0_3_1_7_2 ifhandle "
                                      "0x4242 rc 22\n")));
  EXPECT_EQ(port().sub_port[0].ifhandle, handle_0);
  EXPECT_EQ(port().sub_port[1].ifhandle, handle_1);
}

TEST_F(ea_dispatch, batch_of_two_creates_wakes_once) {
  batch.add("Ots0_3_1_7_0", 0x11);
  batch.add("Ots0_3_1_7_1", 0x12);
  batch.dispatch(create);
  EXPECT_THAT(lines(), lines_in_order({received("1", "2"), serving("CREATE", "0x11"),
                                       serving("CREATE", "0x12"),
                                       info("Entering lum_wakeup_"
                                            "provisioning_thread\n")}));
  EXPECT_EQ(wakeups(), 1u);
}

cerrno refuse(const lum_device_id_td *, const void *) { return 12; }

TEST_F(ea_dispatch, module_that_refuses_the_port_changes_nothing_for_the_agent) {
  lum::lum_module_table()[1].port_create = refuse;
  batch.add("Ots0_3_1_7_0", 0x11);
  batch.dispatch(create);
  EXPECT_THAT(traces(), Contains(error(181,
                                       "create handler failed for ifname:Ots0_3_1_7_0, module: PD "
                                       "Module rc:0xc[error 12]\n")
                                     .of("lum_modules")));
  EXPECT_THAT(lines(), Contains(serving("CREATE", "0x11")));
  EXPECT_EQ(wakeups(), 1u);
}

using ea_dispatch_death = ea_dispatch;

TEST_F(ea_dispatch_death, create_of_a_name_without_a_sub_port_ends_the_process) {
  batch.add("Ots0_3_1_7", 0x4242);
  EXPECT_DEATH(batch.dispatch(create), "lum_ports_db_ifname2devid.*sub_port_exists");
}

TEST_F(ea_dispatch, created_port_is_provisioned_on_the_managers_thread) {
  lum_mark_provisioning_needed(&port());
  batch.add("Ots0_3_1_7_0", 0x11);
  batch.dispatch(create);
  EXPECT_EQ(events.run_pulses(), 1u);
  EXPECT_THAT(lines(), Contains(info("Completed provisioning for rsip 0/3/1/7 loop_count = 1\n")));
}

// ---- Update, get info, delete ----

TEST_F(ea_dispatch, update_services_and_wakes) {
  batch.add("Ots0_3_1_7_0", 0x11, 255, 254);
  batch.dispatch(update);
  EXPECT_THAT(lines(), ElementsAre(received("2", "1"), serving("UPDATE", "0x11", "255", "254"),
                                   starting("Entering"), starting("Exiting")));
  EXPECT_EQ(port().sub_port[0].ifhandle, handle_0) << "no handle is recorded";
}

TEST_F(ea_dispatch, get_info_only_services) {
  batch.add("Ots0_3_1_7_0", 0x11);
  batch.dispatch(get_info);
  EXPECT_THAT(lines(), ElementsAre(received("3", "1"), serving("GET_INFO", "0x11")));
  EXPECT_EQ(wakeups(), 0u);
}

TEST_F(ea_dispatch, delete_is_traced_then_serviced) {
  batch.add("Ots0_3_1_7_0", 0x11);
  batch.dispatch(remove_op);
  EXPECT_THAT(lines(),
              ElementsAre(received("4", "1"), info(268, "Delete Oper: Ifhandle : 0x11\n").of(area),
                          serving("DELETE", "0x11")));
  EXPECT_EQ(wakeups(), 0u);
  EXPECT_NE(lum_get_port_node_from_rsip(rsip), nullptr);
}

// ---- End of resync ----

TEST_F(ea_dispatch, resync_end_clears_bit_0_and_completes_the_resync) {
  batch.add("", 0);
  batch.dispatch(resync_end);
  EXPECT_THAT(lines(), ElementsAre(received("0", "1"),
                                   info(265,
                                        "EA resync completed ea_replay_required_bitmap = 0x1 "
                                        "is_resync_with_ea_complete = 0 \n")
                                       .of(area)));
  EXPECT_EQ(lum_get_ctx()->ea_replay_required_bitmap, 0u);
  EXPECT_EQ(lum_get_ctx()->is_resync_with_ea_complete, 1);
  EXPECT_EQ(wakeups(), 0u);
}

TEST_F(ea_dispatch, resync_end_of_two_entries_clears_bit_0_twice_and_completes_on_the_first) {
  batch.add("", 0);
  batch.add("", 0);
  batch.dispatch(resync_end);
  EXPECT_THAT(lines(), ElementsAre(received("0", "2"),
                                   info("EA resync completed ea_replay_required_bitmap = 0x1 "
                                        "is_resync_with_ea_complete = 0 \n"),
                                   info("EA resync completed ea_replay_required_bitmap = 0x0 "
                                        "is_resync_with_ea_complete = 1 \n")));
  EXPECT_EQ(lum_get_ctx()->is_resync_with_ea_complete, 1);
}

TEST_F(ea_dispatch, other_bits_of_the_bitmap_keep_the_resync_incomplete) {
  lum_get_ctx()->ea_replay_required_bitmap = 0x80000003;
  batch.add("", 0);
  batch.dispatch(resync_end);
  EXPECT_EQ(lum_get_ctx()->ea_replay_required_bitmap, 0x80000002u);
  EXPECT_EQ(lum_get_ctx()->is_resync_with_ea_complete, 0);
}

TEST_F(ea_dispatch, resync_that_is_complete_stays_so_whatever_is_owed_later) {
  batch.add("", 0);
  batch.dispatch(resync_end);
  lum_get_ctx()->ea_replay_required_bitmap = 2;
  batch.dispatch(resync_end);
  EXPECT_EQ(lum_get_ctx()->ea_replay_required_bitmap, 2u);
  EXPECT_EQ(lum_get_ctx()->is_resync_with_ea_complete, 1);
}

// ---- Foreign types, replies, empty batches ----

TEST_F(ea_dispatch, foreign_types_are_serviced_without_a_name_and_wake_nobody) {
  batch.add("Ots0_3_1_7_0", 0x11);
  for (const uint32_t type : {5u, 6u, 1000u, 0x80000000u, 0xFFFFFFFFu}) {
    clear_record();
    batch.dispatch(type);
    EXPECT_THAT(lines(), ElementsAre(received(std::to_string(static_cast<int32_t>(type)), "1"),
                                     serving("(null)", "0x11")));
  }
  EXPECT_EQ(wakeups(), 0u);
}

TEST_F(ea_dispatch, first_byte_of_every_reply_entry_becomes_1_and_no_other) {
  for (const uint32_t type : {resync_end, create, update, get_info, remove_op, 9u}) {
    ea_batch three;
    for (const char *name : {"Ots0_3_1_7_0", "Ots0_3_1_9_0", "x"}) three.add(name, 0x11);
    three.dispatch(type);
    EXPECT_THAT(three.written(), ElementsAre(16, 3472, 6928)) << type;
    EXPECT_EQ(three.reply_at(16), 1);
    EXPECT_EQ(three.reply_at(3472), 1);
  }
}

TEST_F(ea_dispatch, reply_entry_is_marked_before_its_own_entry_is_handled_and_no_sooner) {
  batch.add("Ots0_3_1_7_0", 0x11);
  batch.add("Ots0_3_1_7_1", 0x12);
  std::vector<std::vector<std::size_t>> seen;
  at_trace = [&](const trace_line &line) {
    if (line.point == 266) seen.push_back(batch.written());
  };
  batch.dispatch(create);
  EXPECT_THAT(seen, ElementsAre(ElementsAre(16), ElementsAre(16, 3472)));
}

TEST_F(ea_dispatch, empty_batches_of_create_and_update_still_wake) {
  for (const uint32_t type : {resync_end, get_info, remove_op}) batch.dispatch(type);
  EXPECT_EQ(wakeups(), 0u);
  EXPECT_EQ(lum_get_ctx()->ea_replay_required_bitmap, 1u);
  batch.dispatch(create);
  batch.dispatch(update);
  EXPECT_THAT(lines(), Contains(received("1", "0")));
  EXPECT_EQ(wakeups(), 1u) << "folded into one pulse";
  EXPECT_THAT(batch.written(), IsEmpty());
}

TEST_F(ea_dispatch, missing_records_count_as_empty) {
  std::vector<uint8_t> reply(16 + 3456, 0xCC);
  events.entity_agent.dispatch(get_info, nullptr, reply.data());
  std::vector<uint8_t> request(16 + 1240, 1);
  events.entity_agent.dispatch(get_info, request.data(), nullptr);
  EXPECT_THAT(lines(), ElementsAre(received("3", "0"), received("3", "0")));
}

TEST_F(ea_dispatch, one_entry_can_be_serviced_by_hand) {
  std::vector<uint8_t> entry(1240, 0);
  entry[64] = 0x34;
  entry[65] = 0x12;
  entry[76] = 3;
  entry[77] = 1;
  EXPECT_EQ(lum_ots_ea_hdlrs(3, entry.data(), nullptr), 0u);
  EXPECT_EQ(lum_ots_ea_hdlrs(0, entry.data(), nullptr), 0u);
  EXPECT_THAT(traces(), ElementsAre(serving("GET_INFO", "0x1234", "3", "1"),
                                    serving("RESYNC_END", "0x1234", "3", "1")));
}

// ---- Replay triggers ----

TEST_F(ea_dispatch, connect_without_controllers_does_nothing) {
  lum_dec_ots_cntrs(lum_num_ots_ctrls());
  EXPECT_EQ(events.entity_agent.connect(), 0u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ea_dispatch, connect_with_controllers_traces_the_replay) {
  ASSERT_NE(lum_num_ots_ctrls(), 0u);
  EXPECT_EQ(events.entity_agent.connect(), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info(255, "IM-Controller-Create Done, sending Replay to all Connected Clients\n")
                      .of(area)));
}

TEST_F(ea_dispatch, replay_request_only_reads_the_counter) {
  const uint32_t before = lum_num_ots_ctrls();
  EXPECT_EQ(lum_server_trigger_replay_request(), 0u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(lum_num_ots_ctrls(), before);
}

}  // namespace

}  // namespace ea_dispatch_test
