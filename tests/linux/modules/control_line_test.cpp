// Reset and low-power lines of cages.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "hardware_helpers.h"

using namespace hardware_test;
using namespace lum_linux;

namespace {

// Answers as it is told.
class told_memory final : public module_memory {
 public:
  explicit told_memory(cerrno &answer) : answer_(answer) {}
  cerrno read(uint32_t, uint32_t, std::span<uint8_t>) override { return answer_; }
  cerrno write(uint32_t, uint32_t, uint8_t) override { return answer_; }
  bool present() override { return answer_ != module_absent; }
  std::string location() const override { return "told"; }
  std::string trouble() const override { return "told so"; }

 private:
  cerrno &answer_;
};

class ControlLine : public testing::Test {
 protected:
  test_folder folder;
  std::filesystem::path reset = folder / "reset";
  cerrno answer = module_ok;

  void SetUp() override { write_file(reset, "out\n"); }

  std::unique_ptr<modules> rack() {
    std::vector<module_placement> placements(1);
    placements[0].rsip = rsip;
    placements[0].memory = std::make_unique<told_memory>(answer);
    placements[0].reset = {reset, "in", "out"};
    return std::make_unique<modules>(std::move(placements));
  }
  std::string content() const {
    const bytes all = hardware_test::read_file(reset);
    return {all.begin(), all.end()};
  }
};

TEST_F(ControlLine, IsReadAndLeftAlone) {
  const auto all = rack();
  all->look();
  EXPECT_EQ(content(), "out\n");
  const auto status = all->status(rsip);
  ASSERT_TRUE(status->reset);
  EXPECT_EQ(status->reset->is_on, false);
  EXPECT_EQ(status->reset->file, reset.native());
  EXPECT_FALSE(status->low_power);
}

TEST_F(ControlLine, IsSetToEitherValue) {
  const auto all = rack();
  EXPECT_EQ(all->set_line(rsip, module_line::reset, true), module_ok);
  EXPECT_EQ(content(), "in");
  EXPECT_EQ(all->status(rsip)->reset->is_on, true);
  EXPECT_EQ(all->set_line(rsip, module_line::reset, false), module_ok);
  EXPECT_EQ(content(), "out");
  EXPECT_EQ(all->status(rsip)->reset->is_on, false);
}

TEST_F(ControlLine, IsNotKnownWhenItHoldsNeitherValue) {
  write_file(reset, "maybe");
  const auto all = rack();
  EXPECT_FALSE(all->status(rsip)->reset->is_on);
  EXPECT_EQ(all->status(rsip)->reset->code, 0u);
  std::filesystem::remove(reset);
  all->look();
  EXPECT_EQ(all->status(rsip)->reset->code, static_cast<cerrno>(ENOENT));
}

TEST_F(ControlLine, OnlyLinesOfTheCageCanBeSet) {
  const auto all = rack();
  EXPECT_EQ(all->set_line(rsip, module_line::low_power, true), module_unsupported);
  EXPECT_EQ(all->set_line(rsip + 1, module_line::reset, true), module_bad_argument);
  std::filesystem::remove(reset);
  EXPECT_EQ(all->set_line(rsip, module_line::reset, true), static_cast<cerrno>(ENOENT));
  EXPECT_FALSE(std::filesystem::exists(reset));
}

TEST_F(ControlLine, PipeInItsPlaceHoldsUpNobody) {
  std::filesystem::remove(reset);
  ASSERT_EQ(::mkfifo(reset.c_str(), 0600), 0);
  const auto all = rack();
  EXPECT_NE(all->set_line(rsip, module_line::reset, true), module_ok);
  EXPECT_EQ(all->status(rsip)->reset->code, static_cast<cerrno>(EIO));
}

TEST_F(ControlLine, SilentModuleInResetIsNotAbsent) {
  const auto all = rack();
  EXPECT_EQ(all->set_line(rsip, module_line::reset, true), module_ok);
  answer = module_absent;
  EXPECT_EQ(read_one(*all), module_failing);
  EXPECT_EQ(all->status(rsip)->statistics.last_reason, "the module is held in reset");
  all->look();
  EXPECT_TRUE(all->present(rsip)) << "as it was known before";
}

TEST_F(ControlLine, NothingIsKnownOfACageThatStartsInReset) {
  answer = module_absent;
  write_file(reset, "in");
  const auto all = rack();
  EXPECT_FALSE(all->status(rsip)->is_known());
}

TEST_F(ControlLine, ModuleOutOfResetIsAnInsertion) {
  const auto all = rack();
  all->look();
  EXPECT_EQ(all->set_line(rsip, module_line::reset, true), module_ok);
  const auto before = all->status(rsip)->insertion;
  EXPECT_EQ(all->set_line(rsip, module_line::reset, false), module_ok);
  EXPECT_NE(all->status(rsip)->insertion, before);
}

TEST_F(ControlLine, FailureKeepsWhatTheMemorySaysOfIt) {
  const auto all = rack();
  answer = module_failing;
  EXPECT_EQ(read_one(*all), module_failing);
  EXPECT_EQ(all->status(rsip)->statistics.last_reason, "told so");
  std::string why;
  uint8_t byte = 0;
  EXPECT_EQ(all->peek(rsip, 0, 0, {&byte, 1}, &why), module_failing);
  EXPECT_EQ(why, "told so");
}

TEST_F(ControlLine, RefusalByAFaultHasNoReasonOfTheMemorys) {
  const auto all = rack();
  answer = module_failing;
  EXPECT_EQ(read_one(*all), module_failing);
  fault_script script;
  std::string error;
  ASSERT_TRUE(parse_fault_script("refuse-every=1", script, error));
  all->set_faults(rsip, script);
  EXPECT_EQ(read_one(*all), module_failing);
  EXPECT_EQ(all->status(rsip)->statistics.last_reason, "");
}

}  // namespace
