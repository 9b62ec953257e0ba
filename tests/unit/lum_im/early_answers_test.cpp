// Answers that come before the send has returned.
#include <gmock/gmock.h>

#include "controllers.h"

namespace early_answers_test {

using namespace support;

namespace {

const area lum_im = {"lum_im"};

class early_answers : public created_ports {
 protected:
  void SetUp() override {
    created_ports::SetUp();
    im.answers_at_once = true;
  }
  static uint32_t controllers() { return lum_get_ctx()->controller_count; }
  static constexpr uint32_t ports[] = {7, 8};
};

TEST_F(early_answers, update_ends_with_its_success_after_the_completion) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({info("Controller update done cb for 2 ports, freed memory"),
                              lum_im.says("d", "controller_update_success,bulk_count,2")}));
  EXPECT_THAT(traces().back(), lum_im.says("d", "controller_update_success,bulk_count,2"));
}

TEST_F(early_answers, creation_and_deletion_are_counted_all_the_same) {
  const uint32_t before = controllers();
  EXPECT_EQ(lum_ots_controllers_create(0, 3, 0, 2, ports), 0u);
  EXPECT_EQ(controllers(), before + 4);
  EXPECT_EQ(lum_ots_controllers_delete(0, 3, 0, 2, ports), 0u);
  EXPECT_EQ(controllers(), before);
}

}  // namespace

}  // namespace early_answers_test
