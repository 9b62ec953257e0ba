// A port's mutex and those who wait for it when a deletion keeps it.
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>

#include "asleep.h"
#include "base/locks.h"
#include "controllers.h"

namespace port_lock_test {

using namespace support;

namespace {

int trylock_elsewhere(lum_port_data &port) {
  int rc = 0;
  on_another_thread([&] { rc = pthread_mutex_trylock(&port.port_mutex); });
  return rc;
}

TEST_F(created_ports, thread_asleep_on_a_ports_mutex_comes_back_with_125_when_it_is_kept) {
  lum_port_data &port = data_at(first);
  lum::port_lock mine(port);
  ASSERT_EQ(mine.try_take(), 0);
  int error = 0;
  sleeper waiter([&] {
    error = lum::port_hold(port, {"waiter", 1}, lum::after_failure::leave).error();
  });
  waiter.wait_asleep();
  mine.keep();
  waiter.join();
  EXPECT_EQ(error, ECANCELED);
  EXPECT_EQ(trylock_elsewhere(port), EBUSY) << "the keeper has it again";
  EXPECT_EQ(mine.release(), 0) << "the keeper gives it back";
  EXPECT_EQ(mine.try_take(), 0);
  EXPECT_EQ(mine.release(), 0);
}

// A thread that has ended leaves its ids to the next one, and its number to nobody.
TEST_F(created_ports, mutex_of_a_keeper_that_has_ended_is_refused_to_every_later_thread) {
  lum_port_data &port = data_at(first);
  on_another_thread([&] {
    lum::port_lock mine(port);
    ASSERT_EQ(mine.try_take(), 0);
    mine.keep();
  });
  const uint64_t keeper = port.mutex_kept_by;
  ASSERT_NE(keeper, 0u);
  watch(port.port_mutex, "port 7");
  clear_record();
  for (int i = 0; i < 200; ++i) {
    on_another_thread([&] {
      EXPECT_EQ(lum::port_lock(port).release(), EPERM);
      lum::port_hold lock(port, {"test", 1}, lum::after_failure::leave);
      EXPECT_EQ(lock.error(), ECANCELED);
      EXPECT_TRUE(lock.barred());
    });
  }
  EXPECT_EQ(port.mutex_kept_by, keeper);
  EXPECT_THAT(calls({"pthread_mutex_unlock"}), testing::IsEmpty());
}

TEST_F(created_ports, kept_mutex_that_is_made_anew_is_free_and_error_checking) {
  lum_port_data &port = data_at(first);
  on_another_thread([&] {
    lum::port_lock mine(port);
    ASSERT_EQ(mine.try_take(), 0);
    mine.keep();
  });
  lum::port_lock(port).renew();
  EXPECT_EQ(port.mutex_kept_by, 0u);
  EXPECT_EQ(pthread_mutex_lock(&port.port_mutex), 0);
  EXPECT_EQ(pthread_mutex_lock(&port.port_mutex), EDEADLK);
  EXPECT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
}

}  // namespace

}  // namespace port_lock_test
