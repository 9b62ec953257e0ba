// The lock that serialises the client's queries.
#include <gmock/gmock.h>

#include "controllers.h"
#include "lum_api/lum_api.h"

namespace serial_lock_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const area lum_api = {"lum_api"};

class serial_lock : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    watch(lum::serial_mutex, "serial");
  }
};

TEST_F(serial_lock, is_taken_by_trying_and_released) {
  lum_serial_lock(1, "caller");
  lum_serial_unlock(2, "caller");
  EXPECT_THAT(calls(),
              ElementsAre("pthread_mutex_trylock(serial)", "pthread_mutex_unlock(serial)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(serial_lock, taken_twice_fails_with_35_and_is_released) {
  lum_serial_lock(1, "caller");
  clear_record();
  lum_serial_lock(2, "caller");
  EXPECT_THAT(calls(), ElementsAre("pthread_mutex_trylock(serial)",
                                   "ptd_set_mutex_block(\"lum_serial_lock\", 799)",
                                   "pthread_mutex_lock(serial)", "ptd_unset_mutex_block()",
                                   "pthread_mutex_unlock(serial)"));
  EXPECT_THAT(traces(), ElementsAre(lum_api.complains("ds",
                                                      "serial lock failed with rc 35 for "
                                                      "caller\n")));
}

TEST_F(serial_lock, that_fails_is_traced_with_the_callers_name_and_released_anyway) {
  script.fail("pthread_mutex_trylock", 1, 22, &lum::serial_mutex);
  lum_serial_lock(1, "caller");
  EXPECT_THAT(calls(),
              ElementsAre("pthread_mutex_trylock(serial)", "pthread_mutex_unlock(serial)"));
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.complains("ds", "serial lock failed with rc 22 for caller\n")));
}

TEST_F(serial_lock, of_a_caller_without_a_name_that_fails_is_traced_without_it) {
  script.fail("pthread_mutex_trylock", 1, 22, &lum::serial_mutex);
  lum_serial_lock(1, nullptr);
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.complains("ds", "serial lock failed with rc 22 for \n")));
}

TEST_F(serial_lock, failing_release_is_traced_on_the_info_channel) {
  lum_serial_unlock(1, "caller");
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ds",
                                                 "serial unlock failed with rc 1 for "
                                                 "caller\n")));
}

}  // namespace

}  // namespace serial_lock_test
