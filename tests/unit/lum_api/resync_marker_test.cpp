// The context's resync marker: set by a replay, cleared by a resync, a slot or a creation.
#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "controllers.h"

namespace resync_marker_test {

using namespace support;
using testing::ElementsAre;

namespace {

const area lum_api = {"lum_api"};

uint32_t &marker() { return lum_get_ctx()->resync; }

// What the marker was at each line that begins so.
std::vector<uint32_t> marker_at(const char *beginning, const std::function<void()> &work) {
  std::vector<uint32_t> seen;
  at_trace = [&](const trace_line &line) {
    if (line.text.rfind(beginning, 0) == 0) seen.push_back(marker());
  };
  work();
  at_trace = nullptr;
  return seen;
}

class resync_marker : public created_ports {};

TEST_F(resync_marker, is_set_before_the_replay_begins) {
  EXPECT_THAT(marker_at("Replaying controllers", [] { lum_replay_controllers(); }), ElementsAre(1));
}

TEST_F(resync_marker, stays_set_after_a_refused_replay) {
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(lum_replay_controllers(), 31u);
  EXPECT_EQ(marker(), 1u);
}

TEST_F(resync_marker, is_cleared_only_after_the_resync_request) {
  marker() = 1;
  EXPECT_THAT(marker_at("Need to Resync-with EA-Client", lum_resync_with_ea), ElementsAre(1));
  EXPECT_EQ(marker(), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("",
                                                 "Need to Resync-with EA-Client, sending "
                                                 "Replay-Request from EA-Server\n")));
}

TEST_F(resync_marker, is_cleared_before_a_slot_is_opened_or_ports_are_created) {
  const lum_slot_props slot = {1, 2};
  marker() = 1;
  EXPECT_THAT(marker_at("LUM_API: entry", [&] { lum_plat_init(0, 4, 0, &slot); }), ElementsAre(0));
  marker() = 1;
  EXPECT_THAT(marker_at("LUM_API: entry", [] { lum_create_ports(0, nullptr); }), ElementsAre(0));
}

using resync_without_ports = running_library;

TEST_F(resync_without_ports, replay_has_nothing_to_do_and_sets_the_marker) {
  EXPECT_EQ(lum_replay_controllers(), 0u);
  EXPECT_EQ(marker(), 1u);
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_api.says("", "Replaying controllers for all ports\n"),
                  area{"lum_controller_interface"}.complains(
                      "", "Number of controllers is 0 nothing to replay!\n"),
                  lum_api.says("d", "Done with replaying controllers for all ports rc: 0\n")));
}

}  // namespace

}  // namespace resync_marker_test
