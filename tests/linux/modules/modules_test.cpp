// The rack: which module is where, what the callbacks answer and what is counted.
#include <limits>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

node_description node_of(const module_description &module) {
  node_description node;
  port_description described;
  described.number = port;
  described.rsip = rsip;
  described.module = module;
  instance_description in_slot;
  in_slot.ports.push_back(described);
  slot_description only;
  only.number = slot;
  only.instances.push_back(in_slot);
  node.slots.push_back(only);
  return node;
}

TEST(Modules, CallbacksReachTheModuleOfThePort) {
  const auto rack = simulated_rack();
  const bytes whole = numbered(640);
  uint8_t value = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port, 3, 150, &value), 0u);
  EXPECT_EQ(value, whole[512 + 22]);
  bytes block(23);
  EXPECT_EQ(rack->read_block(slot, instance, port, 1, 192, 23, block.data()), 0u);
  EXPECT_EQ(block, bytes(whole.begin() + 320, whole.begin() + 343));
  EXPECT_EQ(rack->write_byte(slot, instance, port, 2, 144, 0x5A), 0u);
  EXPECT_EQ(rack->read_byte(slot, instance, port, 2, 144, &value), 0u);
  EXPECT_EQ(value, 0x5A);
}

TEST(Modules, UnknownPortsAreBadArguments) {
  const auto rack = simulated_rack();
  uint8_t value = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port + 1, 0, 0, &value), 22u);
  EXPECT_EQ(rack->read_byte(slot + 256, instance, port, 0, 0, &value), 22u);
  EXPECT_EQ(rack->read_byte(slot, 0xFFFFFFFF, port, 0, 0, &value), 22u);
  EXPECT_EQ(rack->read_block(0, 0, 0, 0, 0, 2, &value), 22u);
  EXPECT_EQ(rack->write_byte(0, 0, 0, 0, 0, 1), 22u);
  EXPECT_FALSE(rack->present(0));
  EXPECT_FALSE(rack->status(0).has_value());
  EXPECT_EQ(rack->set_faults(0, {}), 22u);
  EXPECT_EQ(rack->release(0), 22u);
  EXPECT_EQ(rack->remove(0), 22u);
  EXPECT_EQ(rack->insert(0), 22u);
  std::string error;
  EXPECT_EQ(rack->insert(0, "x", error), 22u);
  EXPECT_EQ(rack->peek(0, 0, 0, {&value, 1}), 22u);
  EXPECT_EQ(rack->poke(0, 0, 0, 1), 22u);
}

TEST(Modules, RackOfAPortDoesNotMatterToTransfers) {
  std::vector<module_placement> placements(1);
  const uint32_t other_rack = make_rsip(7, slot, instance, port);
  placements[0] = {other_rack,
                   module_backend::simulated,
                   make_simulated_memory("test", {numbered(640), {}}),
                   {},
                   {}};
  modules rack(std::move(placements));
  EXPECT_EQ(read_one(rack), 0u);
  EXPECT_EQ(rack.ports(), std::vector<uint32_t>{other_rack});
}

TEST(Modules, PlacesOutsideAModulesMemoryAreRefused) {
  const auto rack = simulated_rack();
  bytes buffer(600, 0x77);
  const auto read = [&](uint32_t page, uint32_t offset, int32_t length) {
    return rack->read_block(slot, instance, port, page, offset, length, buffer.data());
  };
  EXPECT_EQ(read(0, 0, 256), 0u);
  EXPECT_EQ(read(0, 0, 257), 22u);
  EXPECT_EQ(read(0, 255, 2), 22u);
  EXPECT_EQ(read(0, 256, 1), 22u);
  EXPECT_EQ(read(256, 128, 2), 22u);
  EXPECT_EQ(read(0xFFFFFFFF, 0xFFFFFFFF, 2), 22u);
  EXPECT_EQ(read(0, 0, std::numeric_limits<int32_t>::max()), 22u);
  EXPECT_EQ(read(0, 0, 0), 22u);
  EXPECT_EQ(read(0, 0, -1), 22u);
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 0, nullptr), 22u);
  EXPECT_EQ(rack->read_block(slot, instance, port, 0, 0, 2, nullptr), 22u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 0, 256, 0), 22u);
  EXPECT_EQ(rack->poke(rsip, 300, 0, 0), 22u);
  EXPECT_EQ(buffer[256], 0x77);
}

TEST(Modules, PageTheModuleDoesNotHaveFails) {
  const auto rack = simulated_rack();
  EXPECT_EQ(read_one(*rack, 4, 128), 5u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 200, 128, 0), 5u);
  EXPECT_EQ(read_one(*rack, 200, 5), 0u) << "the lower page is there whatever the page";
}

TEST(Modules, TransfersAreCounted) {
  const auto rack = simulated_rack();
  const auto before = std::chrono::steady_clock::now();
  bytes block(23);
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(rack->read_block(slot, instance, port, 1, 192, 23, block.data()), 0u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 2, 144, 1), 0u);
  EXPECT_EQ(rack->write_byte(slot, instance, port, 2, 145, 1), 0u);
  EXPECT_EQ(read_one(*rack, 9, 128), 5u);
  const module_statistics counted = statistics(*rack);
  EXPECT_EQ(counted.attempted, 5u);
  EXPECT_EQ(counted.failed, 1u);
  EXPECT_EQ(counted.bytes_read, 24u);
  EXPECT_EQ(counted.bytes_written, 2u);
  EXPECT_EQ(counted.last_error, 5u);
  EXPECT_GE(counted.last_success, before);
  EXPECT_GE(counted.last_failure, counted.last_success);
}

TEST(Modules, GlimpseIsTheSameAsLongAsTransfersSucceed) {
  const auto rack = simulated_rack();
  uint8_t value = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 0, &value), 0u);
  const module_glimpse well = rack->glimpse(rsip);
  EXPECT_TRUE(well.known && well.present && !well.failed_last);
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 1, &value), 0u);
  EXPECT_EQ(rack->glimpse(rsip), well);
  EXPECT_EQ(rack->read_byte(slot, instance, port, 9, 128, &value), 5u);
  EXPECT_NE(rack->glimpse(rsip), well);
  EXPECT_TRUE(rack->glimpse(rsip).failed_last);
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_FALSE(rack->glimpse(rsip).present);
  EXPECT_EQ(rack->insert(rsip), 0u);
  EXPECT_NE(rack->glimpse(rsip).insertion, well.insertion);
  EXPECT_EQ(rack->glimpse(0), module_glimpse());
}

TEST(Modules, ModuleThatHasJustAnsweredIsNotAskedForAWhile) {
  const auto rack = simulated_rack();
  EXPECT_EQ(rack->unasked_for().count(), 0);
  uint8_t value = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 0, &value), 0u);
  EXPECT_GT(rack->unasked_for().count(), 0);
  EXPECT_EQ(rack->read_byte(slot, instance, port, 9, 128, &value), 5u);
  EXPECT_EQ(rack->unasked_for().count(), 0);
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 0, &value), 0u);
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_EQ(rack->unasked_for().count(), 0);
}

TEST(Modules, ModuleNeverAskedHasNothingCounted) {
  const module_statistics counted = statistics(*simulated_rack());
  EXPECT_EQ(counted.attempted, 0u);
  EXPECT_EQ(counted.last_error, 0u);
  EXPECT_EQ(counted.last_success, std::chrono::steady_clock::time_point());
}

TEST(Modules, FileThatAppearsAndVanishesIsFollowed) {
  test_folder folder;
  const auto rack = rack_of(make_file_memory(folder / "eeprom"), {}, module_backend::file);
  EXPECT_FALSE(rack->present(rsip));
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_EQ(rack->insert(rsip), 2u);
  write_file(folder / "eeprom", numbered(640));
  rack->look();
  EXPECT_TRUE(rack->present(rsip));
  const uint64_t first = rack->status(rsip)->insertion;
  EXPECT_EQ(read_one(*rack), 0u);
  std::filesystem::remove(folder / "eeprom");
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_FALSE(rack->status(rsip)->present);
  write_file(folder / "eeprom", numbered(640));
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_TRUE(rack->status(rsip)->present);
  EXPECT_NE(rack->status(rsip)->insertion, first);
}

TEST(Modules, ReplacedFileIsAnotherInsertion) {
  test_folder folder;
  write_file(folder / "eeprom", numbered(640));
  const auto rack = rack_of(make_file_memory(folder / "eeprom"), {}, module_backend::file);
  const uint64_t first = rack->status(rsip)->insertion;
  rack->look();
  EXPECT_EQ(rack->status(rsip)->insertion, first);
  EXPECT_EQ(rack->poke(rsip, 0, 10, 2), 0u);
  rack->look();
  EXPECT_EQ(rack->status(rsip)->insertion, first);
  write_file(folder / "next", numbered(640));
  std::filesystem::rename(folder / "next", folder / "eeprom");
  rack->look();
  EXPECT_EQ(rack->status(rsip)->insertion, first + 1);
}

TEST(Modules, RemovedModuleIsGoneUntilItIsInserted) {
  const auto rack = simulated_rack();
  const uint64_t first = rack->status(rsip)->insertion;
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_FALSE(rack->present(rsip));
  EXPECT_EQ(read_one(*rack), 19u);
  uint8_t value = 0;
  EXPECT_EQ(rack->peek(rsip, 0, 0, {&value, 1}), 19u);
  EXPECT_EQ(rack->poke(rsip, 0, 0, 1), 19u);
  EXPECT_EQ(rack->insert(rsip), 0u);
  EXPECT_TRUE(rack->present(rsip));
  EXPECT_EQ(read_one(*rack), 0u);
  EXPECT_EQ(rack->status(rsip)->insertion, first + 1);
}

TEST(Modules, InsertingWhereAModuleIsChangesNothing) {
  const auto rack = simulated_rack();
  const uint64_t first = rack->status(rsip)->insertion;
  EXPECT_EQ(rack->insert(rsip), 0u);
  EXPECT_EQ(rack->status(rsip)->insertion, first);
}

TEST(Modules, FileModuleCannotBeReplacedByADescription) {
  test_folder folder;
  const auto rack = rack_of(make_file_memory(folder / "eeprom"), {}, module_backend::file);
  std::string error;
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/iivi-new-map.toml", error), 95u);
  EXPECT_EQ(error, "only a simulated module can be replaced");
}

TEST(Modules, NodesModulesAreOpenedByTheirBackend) {
  test_folder folder;
  write_file(folder / "eeprom", numbered(640));
  std::string error;
  module_description module;
  module.file = folder / "eeprom";
  auto rack = modules::open(node_of(module), error);
  ASSERT_TRUE(rack) << error;
  EXPECT_TRUE(rack->present(rsip));
  EXPECT_EQ(rack->status(rsip)->location, (folder / "eeprom").string());

  module.backend = module_backend::i2c_dev;
  module.i2c_bus = folder / "i2c-9";
  rack = modules::open(node_of(module), error);
  ASSERT_TRUE(rack) << error;
  EXPECT_FALSE(rack->present(rsip));
  EXPECT_EQ(rack->status(rsip)->backend, module_backend::i2c_dev);

  module.backend = module_backend::simulated;
  module.file = MODULE_EXAMPLES "/iivi-new-map.toml";
  rack = modules::open(node_of(module), error);
  ASSERT_TRUE(rack) << error;
  uint8_t letter = 0;
  EXPECT_EQ(rack->read_byte(slot, instance, port, 0, 129, &letter), 0u);
  EXPECT_EQ(letter, 'I');
}

TEST(Modules, WrongSimulatedModuleIsRefusedWithFileAndLine) {
  test_folder folder;
  write_file(folder / "bad.toml", "vendor = \"II-VI\"\nfirmware = [0, 6]\nsupply = 7\n");
  module_description module;
  module.backend = module_backend::simulated;
  module.file = folder / "bad.toml";
  std::string error;
  EXPECT_FALSE(modules::open(node_of(module), error));
  EXPECT_EQ(error, (folder / "bad.toml").string() +
                       ":3: 'supply' is 7, expected a number from 0 to 6.5535");
}

}  // namespace
