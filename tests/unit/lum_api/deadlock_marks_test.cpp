// The deadlock monitor is told which mutex a thread waits for.
#include <gmock/gmock.h>

#include <cerrno>

#include "controllers.h"
#include "deadlock_marks.h"
#include "lum_api/lum_api.h"

namespace deadlock_marks_test {

using namespace support;
using testing::SizeIs;

namespace {

class marks : public created_ports {
 protected:
  // Makes the next try find the mutex taken.
  static void make_busy(const pthread_mutex_t &mutex) {
    script.fail("pthread_mutex_trylock", 1, EBUSY, &mutex);
  }
  static void expect_one_wait_for(const pthread_mutex_t &mutex) {
    EXPECT_THAT(calls({"ptd_set_mutex_block"}), SizeIs(1));
    EXPECT_THAT(calls({"ptd_unset_mutex_block"}), SizeIs(1));
    EXPECT_EQ(last_marks().set, &mutex);
    EXPECT_EQ(last_marks().unset, &mutex);
  }
};

TEST_F(marks, of_the_serial_lock) {
  make_busy(lum::serial_mutex);
  lum_serial_lock(1, "caller");
  expect_one_wait_for(lum::serial_mutex);
}

TEST_F(marks, of_the_provisioning_lock) {
  make_busy(prov_lock);
  lum_prov_lock(1);
  expect_one_wait_for(prov_lock);
}

TEST_F(marks, of_the_database) {
  make_busy(lum_platform.mutex);
  const lum_port_data data = {};
  EXPECT_EQ(lum_ports_db_add_entry(0x40007, &data), 0u);
  expect_one_wait_for(lum_platform.mutex);
}

TEST_F(marks, of_a_port_in_a_deletion) {
  make_busy(data_at(second).port_mutex);
  const uint32_t ports[] = {7, 8};
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 2, ports), 0u);
  expect_one_wait_for(data_at(second).port_mutex);
}

TEST_F(marks, of_a_port_that_is_provisioned) {
  make_busy(data_at(first).port_mutex);
  EXPECT_EQ(lum_provision_port_cfg_data(0, &data_at(first), 0x40000), 0u);
  expect_one_wait_for(data_at(first).port_mutex);
}

TEST_F(marks, of_a_port_that_is_polled) {
  make_busy(data_at(second).port_mutex);
  polling.run_cycle();
  expect_one_wait_for(data_at(second).port_mutex);
}

}  // namespace

}  // namespace deadlock_marks_test
