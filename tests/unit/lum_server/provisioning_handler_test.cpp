// The provisioning handler and the per-port step that it calls.
#include <gmock/gmock.h>

#include <utility>
#include <vector>

#include "library.h"
#include "provisioning_step.h"

namespace provisioning_handler_test {

using namespace support;
using testing::ElementsAre;
using testing::Pair;

namespace {

class provisioning_handler : public running_library {
 protected:
  static constexpr uint32_t first = 0x30106;
  static constexpr uint32_t second = 0x30108;

  void SetUp() override {
    running_library::SetUp();
    for (const uint32_t rsip : {first, second}) {
      add_port(rsip);
      lum_mark_provisioning_needed(&data_at(rsip));
    }
    clear_record();
  }
};

TEST_F(provisioning_handler, goes_on_behind_a_port_whose_step_fails) {
  provisioning_step = [](lum_port_data *port, uint32_t) -> cerrno {
    return port == &data_at(first) ? 9 : 0;
  };
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  EXPECT_THAT(
      traces(),
      lines_in_order(
          {info(261, "Going to Provision for rsip 0/3/1/6\n"),
           error(263, "Provisioning returned Error for rsip 0/3/1/6 status: 9\n").of("lum_server"),
           info(261, "Going to Provision for rsip 0/3/1/8\n"),
           info(262, "Completed provisioning for rsip 0/3/1/8 loop_count = 2\n")}));
  EXPECT_EQ(data_at(first).provisioning_needed, 1u);
  EXPECT_EQ(data_at(second).provisioning_needed, 1u);
}

TEST_F(provisioning_handler, hands_each_ports_data_and_handle_to_the_step) {
  std::vector<std::pair<lum_port_data *, uint32_t>> made;
  provisioning_step = [&](lum_port_data *port, uint32_t handle) -> cerrno {
    made.emplace_back(port, handle);
    return 0;
  };
  lum_wakeup_provisioning_thread();
  events.run_pulses();
  EXPECT_THAT(made, ElementsAre(Pair(&data_at(first), handle_for(first)),
                                Pair(&data_at(second), handle_for(second))));
}

}  // namespace

}  // namespace provisioning_handler_test
