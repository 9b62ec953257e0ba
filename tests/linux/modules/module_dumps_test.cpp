// Memories of real modules, from the folder that LUM_MODULE_DUMPS names: every *.eeprom in it is
// read as a module.
#include <algorithm>
#include <cstdlib>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

TEST(ModuleDumps, AreReadAsTheyAre) {
  const char *folder = std::getenv("LUM_MODULE_DUMPS");
  if (!folder) GTEST_SKIP() << "LUM_MODULE_DUMPS is not set";
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".eeprom") continue;
    SCOPED_TRACE(entry.path());
    ++count;
    const bytes whole = read_file(entry.path());
    ASSERT_GE(whole.size(), 256u);
    const auto rack = rack_of(make_file_memory(entry.path()), {}, module_backend::file);
    EXPECT_TRUE(rack->present(rsip));
    bytes window(256);
    EXPECT_EQ(rack->read_block(slot, instance, port, 0, 0, 256, window.data()), 0u);
    EXPECT_TRUE(std::equal(window.begin(), window.end(), whole.begin()));
    const auto pages = static_cast<uint32_t>(whole.size() / 128 - 1);
    bytes last(128);
    EXPECT_EQ(rack->read_block(slot, instance, port, pages - 1, 128, 128, last.data()), 0u);
    EXPECT_TRUE(std::equal(last.begin(), last.end(), whole.end() - 128));
    EXPECT_EQ(rack->read_block(slot, instance, port, pages, 128, 2, last.data()), 5u);
  }
  EXPECT_GT(count, 0) << "no *.eeprom in " << folder;
}

}  // namespace
