// A module without files or hardware: empty cages, other modules in the place of one.
#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

std::string vendor_of(modules &rack) {
  bytes name(16);
  EXPECT_EQ(rack.read_block(slot, instance, port, 0, 129, 16, name.data()), 0u);
  std::string text(name.begin(), name.end());
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

class SimulatedModule : public testing::Test {
 protected:
  test_folder folder;
  std::string error;
};

TEST_F(SimulatedModule, CageWithoutADescriptionFileIsEmpty) {
  const auto rack =
      rack_of(make_simulated_memory("cage"), {}, module_backend::simulated, folder / "module.toml");
  EXPECT_FALSE(rack->present(rsip));
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 0, 0, 1), 19u);
  EXPECT_EQ(rack->insert(rsip), 2u);
}

TEST_F(SimulatedModule, EmptyCageTakesTheModuleDescribedMeanwhile) {
  const auto rack =
      rack_of(make_simulated_memory("cage"), {}, module_backend::simulated, folder / "module.toml");
  std::filesystem::copy(MODULE_EXAMPLES "/accelink-new-map.toml", folder / "module.toml");
  EXPECT_EQ(rack->insert(rsip), 0u);
  EXPECT_TRUE(rack->present(rsip));
  EXPECT_EQ(vendor_of(*rack), "ACCELINK");
}

TEST_F(SimulatedModule, AnotherModuleTakesThePlaceOfOne) {
  const auto rack = simulated_rack();
  const uint64_t first = rack->status(rsip)->insertion;
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/iivi-new-map.toml", error), 0u) << error;
  EXPECT_EQ(vendor_of(*rack), "II-VI");
  EXPECT_EQ(rack->status(rsip)->insertion, first + 1);
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/accelink-old-map.toml", error), 0u) << error;
  EXPECT_EQ(vendor_of(*rack), "ACCELINK");
  EXPECT_EQ(rack->status(rsip)->insertion, first + 2);
}

TEST_F(SimulatedModule, AnotherModuleBringsItsOwnFaults) {
  fault_script faults;
  faults.refuse_every = 1;
  const auto rack = simulated_rack(faults);
  EXPECT_EQ(read_one(*rack), 5u);
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/iivi-new-map.toml", error), 0u);
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/accelink-flaky.toml", error), 0u);
  EXPECT_EQ(rack->status(rsip)->faults.refuse_percent, 33u);
}

TEST_F(SimulatedModule, WrongDescriptionLeavesTheModuleThere) {
  write_file(folder / "bad.toml", "vendor = \"II-VI\"\n");
  const auto rack = simulated_rack();
  EXPECT_EQ(rack->insert(rsip, folder / "bad.toml", error), 22u);
  EXPECT_NE(error.find("bad.toml:1: missing key 'firmware'"), std::string::npos) << error;
  EXPECT_EQ(rack->insert(rsip, folder / "none.toml", error), 2u);
  EXPECT_NE(error.find("none.toml: cannot be read"), std::string::npos) << error;
  EXPECT_EQ(read_one(*rack), 0u);
}

TEST_F(SimulatedModule, RemovedModuleComesBackWithItsBytes) {
  const auto rack = simulated_rack();
  EXPECT_EQ(rack->write_byte(slot, instance, port, 2, 144, 0x5A), 0u);
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_EQ(rack->insert(rsip), 0u);
  uint8_t value = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port, 2, 144, &value), 0u);
  EXPECT_EQ(value, 0x5A);
}

TEST_F(SimulatedModule, OtherModuleMayBePutIntoACageThatWasPulled) {
  const auto rack = simulated_rack();
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/iivi-new-map.toml", error), 0u);
  EXPECT_TRUE(rack->present(rsip));
  EXPECT_EQ(vendor_of(*rack), "II-VI");
}

}  // namespace
