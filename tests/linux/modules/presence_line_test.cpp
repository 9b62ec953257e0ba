// Cages with a line that says whether there is a module.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "hardware_helpers.h"

using namespace hardware_test;
using namespace lum_linux;

namespace {

// Counts how often it is asked, and answers as it is told.
class counted_memory final : public module_memory {
 public:
  counted_memory(int &asked, cerrno &answer, cerrno &place_code)
      : asked_(asked), answer_(answer), place_code_(place_code) {}
  cerrno read(uint32_t, uint32_t, std::span<uint8_t>) override {
    ++asked_;
    return answer_;
  }
  cerrno write(uint32_t, uint32_t, uint8_t) override {
    ++asked_;
    return answer_;
  }
  bool present() override {
    ++asked_;
    return true;
  }
  std::string location() const override { return "counted"; }
  cerrno place_code() override { return place_code_; }

 private:
  int &asked_;
  cerrno &answer_;
  cerrno &place_code_;
};

class PresenceLine : public testing::Test {
 protected:
  test_folder folder;
  std::filesystem::path line = folder / "value";
  int asked = 0;
  cerrno answer = module_ok;
  cerrno place_code = module_ok;  // of the bus

  std::unique_ptr<modules> rack(const std::string &content) {
    write_file(line, content);
    std::vector<module_placement> placements(1);
    placements[0].rsip = rsip;
    placements[0].memory = std::make_unique<counted_memory>(asked, answer, place_code);
    placements[0].presence = line;
    placements[0].presence_value = "0";
    return std::make_unique<modules>(std::move(placements));
  }
  static cerrno read(modules &all) {
    uint8_t byte = 0;
    return all.read_byte(slot, instance, port, 0, 0, &byte);
  }
};

TEST_F(PresenceLine, LeavesTheMemoryOfAnEmptyCageAlone) {
  const auto all = rack("1\n");
  EXPECT_FALSE(all->present(rsip));
  EXPECT_EQ(read(*all), module_absent);
  EXPECT_EQ(asked, 0);
  EXPECT_EQ(all->status(rsip)->place_code, 0u);
}

TEST_F(PresenceLine, SaysWhenAModuleComesAndGoes) {
  const auto all = rack("1\n");
  write_file(line, " 0 \n");
  all->look();
  EXPECT_TRUE(all->present(rsip));
  EXPECT_EQ(read(*all), module_ok);
  const auto insertion = all->status(rsip)->insertion;
  write_file(line, "1\n");
  all->look();
  EXPECT_FALSE(all->present(rsip));
  write_file(line, "0\n");
  all->look();
  EXPECT_NE(all->status(rsip)->insertion, insertion);
}

TEST_F(PresenceLine, ASilentModuleInAFilledCageFails) {
  const auto all = rack("0\n");
  answer = module_absent;
  EXPECT_EQ(read(*all), module_failing);
  EXPECT_TRUE(all->present(rsip));
  EXPECT_EQ(all->status(rsip)->statistics.failed, 1u);
  EXPECT_EQ(all->status(rsip)->statistics.last_reason,
            "nobody answers, although the presence line says that there is a module");
  place_code = EACCES;
  EXPECT_EQ(read(*all), module_failing);
  EXPECT_EQ(all->status(rsip)->statistics.last_reason,
            "counted cannot be reached: Permission denied");
}

TEST_F(PresenceLine, OneThatCannotBeReadIsAPlaceThatCannotBeReached) {
  const auto all = rack("0\n");
  std::filesystem::remove(line);
  all->look();
  const auto status = *all->status(rsip);
  EXPECT_FALSE(status.present);
  EXPECT_EQ(status.place_code, static_cast<cerrno>(ENOENT));
  EXPECT_EQ(status.place, line.native());
  EXPECT_EQ(read(*all), module_absent);
}

TEST_F(PresenceLine, OneThatIsNoFileIsLeftAlone) {
  const auto all = rack("0\n");
  std::filesystem::remove(line);
  ASSERT_EQ(::mkfifo(line.c_str(), 0600), 0);
  all->look();
  EXPECT_FALSE(all->present(rsip));
  EXPECT_EQ(all->status(rsip)->place_code, static_cast<cerrno>(EIO));
}

}  // namespace
