#include "lum_linux/disks.h"

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <memory>

#include "test_folder.h"

using lum_linux::ends_within;
using lum_linux::folder_answers;
using lum_linux::folder_is_waited_for;
using lum_linux::place_answers;
using namespace std::chrono_literals;

TEST(disks, work_that_does_not_end_is_left_behind_and_ends_by_itself) {
  const auto gate = std::make_shared<std::promise<void>>();
  const auto ended = std::make_shared<std::promise<void>>();
  EXPECT_FALSE(ends_within(1ms, [gate, ended] {
    gate->get_future().wait();
    ended->set_value();
  }));
  gate->set_value();
  ended->get_future().wait();
}

TEST(disks, work_that_ends_has_let_go_of_what_it_owned) {
  const auto owned = std::make_shared<int>(7);
  EXPECT_TRUE(ends_within(1h, [owned] {}));
  EXPECT_EQ(owned.use_count(), 1);
}

TEST(disks, a_folder_that_is_not_there_is_made) {
  const test_folder folder;
  EXPECT_TRUE(folder_answers(folder / "one/two"));
  EXPECT_TRUE(std::filesystem::is_directory(folder / "one/two"));
  EXPECT_FALSE(folder_is_waited_for(folder / "one/two"));
}

TEST(disks, a_refusal_is_an_answer) {
  const test_folder folder;
  std::ofstream(folder / "file") << "x";
  EXPECT_TRUE(folder_answers(folder / "file/below"));
  EXPECT_TRUE(place_answers(folder / "nothing"));
  EXPECT_FALSE(std::filesystem::exists(folder / "nothing"));
}
