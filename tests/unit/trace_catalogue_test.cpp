// The catalogue of all trace points. That each call made in any unit test is the catalogue's own is
// checked where the calls arrive, in the scripted trace service.
#include <gtest/gtest.h>

#include <map>

#include "catalogue.h"

namespace trace_catalogue_test {

using support::catalogue_entry;
using support::trace_catalogue;

TEST(TraceCatalogue, HoldsEveryNumberFrom1To278Once) {
  ASSERT_EQ(trace_catalogue().size(), 278u);
  uint32_t expected = 0;
  for (const catalogue_entry &entry : trace_catalogue()) EXPECT_EQ(entry.point, ++expected);
}

TEST(TraceCatalogue, KeepsTheGivenNumbers) {
  const std::map<uint32_t, std::pair<std::string, std::string>> given = {
      {11, {"lum_api", "DOM thread created \\n"}},
      {13,
       {"lum_api",
        "DOM thread: DOM is disabled for rsip=0x%x, is_dom_enabled %d, module_fw_upg_in_prog %d, "
        "transceiver_disabled %d\\n"}},
      {14, {"lum_api", "module access lock failed with rc %d \\n"}},
      {15, {"lum_api", "DOM thread: DOM is disabled-2for rsip=0x%x\\n"}},
      {16, {"lum_api", "module access failed with rc %d for rsip=0x%x\\n"}},
      {17, {"lum_api", "module access failed with rc %d \\n"}},
      {68, {"lum_pm_alarm_test", "Create PM, PTAH ports for %x with rc %d\\n"}},
      {69, {"lum_pm_alarm_test", "Delete PM, PTAH ports for %x with rc %d\\n"}},
      {114, {"lum_controller_interface", "Port not found in DB for rsip=0x%x\\n"}},
      {115, {"lum_controller_interface", "HW not accessible for rsip=0x%x\\n"}},
      {116, {"lum_controller_interface", "Read failed for page %d offset %x for %d/%d rc %d\\n"}},
      {117,
       {"lum_controller_interface",
        "Write failed for page %d offset %x val %x on %d/%d rc %d. Retry %d\\n"}},
      {118, {"lum_controller_interface", "Write page %d offset %x val %x on %d/%d rc %d\\n"}},
      {153, {"lum_controller_interface", "Port not found in DB rsip=0x%x\\n"}},
      {154, {"lum_controller_interface", "Port not found in DB rsip=0x%x\\n"}},
      {273, {"lum_utils", "printing %d bytes in hex from %p:\\n"}},
      {274, {"lum_utils", "bytes 0x%04X to 0x%04X: %s\\n"}},
  };
  for (const auto &[point, expected] : given) {
    const catalogue_entry &entry = trace_catalogue().at(point - 1);
    EXPECT_EQ(entry.area, expected.first) << point;
    EXPECT_EQ(entry.message, expected.second) << point;
  }
}

TEST(TraceCatalogue, GivesEachModuleOneBlock) {
  std::map<std::string, uint32_t> last_of;
  std::string previous;
  for (const catalogue_entry &entry : trace_catalogue()) {
    if (entry.area == "-") continue;
    if (entry.area != previous) {
      EXPECT_EQ(last_of.count(entry.area), 0u) << entry.area << " again at " << entry.point;
    }
    last_of[entry.area] = entry.point;
    previous = entry.area;
  }
}

TEST(TraceCatalogue, WritesNothingToThePeriodicChannel) {
  for (const catalogue_entry &entry : trace_catalogue()) {
    EXPECT_TRUE(entry.channel == "lum_error" || entry.channel == "lum_info" ||
                entry.channel == "lum_debug" || entry.area == "-")
        << entry.point;
  }
}

}  // namespace trace_catalogue_test
