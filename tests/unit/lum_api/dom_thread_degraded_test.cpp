// The polling thread: visits behind a failed transfer, and visits that get only half their way.
#include <gmock/gmock.h>

#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <iterator>
#include <thread>
#include <vector>

#include "dom_thread_fixture.h"

namespace dom_thread_degraded_test {

using namespace dom_thread_fixture;
using namespace support;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr unsigned attempts = 5;

// Port 7 fails with 5, so that the visit of port 8 behind it is a degraded one.
class degraded_visit : public dom_thread {
 protected:
  void SetUp() override {
    dom_thread::SetUp();
    add(rsip);
    add(rsip + 1);
    watch(second().port_mutex, "8");
    module(7).fail_transfers(5);
  }
  static lum_port_data &second() { return data_at(rsip + 1); }
};

TEST_F(degraded_visit, whose_first_read_fails_releases_the_mutex_twice) {
  module(8).fail_transfers(9);
  cycle();
  EXPECT_THAT(story(port_locks),
              ElementsAre("LUM_ERR: Read failed for page 0 offset 0 for 0/7 rc 5\n",
                          "LUM_ERR: module access failed with rc 5 for rsip=0x30007\n",
                          "pthread_mutex_trylock(8)", "pthread_mutex_unlock(8)",
                          "LUM_ERR: module access lock failed with rc 5 \n",
                          "LUM_ERR: Read failed for page 0 offset 0 for 0/8 rc 9\n",
                          "LUM_ERR: module access failed with rc 9 for rsip=0x30008\n",
                          "pthread_mutex_unlock(8)"));
}

TEST_F(degraded_visit, whose_second_read_fails_releases_the_mutex_twice) {
  for (unsigned nth = 2; nth <= 1 + attempts; ++nth) {
    script.fail("i2c_read_block", nth, 9, &module(8));
  }
  cycle();
  EXPECT_THAT(story(port_locks),
              ElementsAre("LUM_ERR: Read failed for page 0 offset 0 for 0/7 rc 5\n",
                          "LUM_ERR: module access failed with rc 5 for rsip=0x30007\n",
                          "pthread_mutex_trylock(8)", "pthread_mutex_unlock(8)",
                          "LUM_ERR: module access lock failed with rc 5 \n",
                          "LUM_ERR: Read failed for page 3 offset 80 for 0/8 rc 9\n",
                          "LUM_ERR: module access failed with rc 9 \n", "pthread_mutex_unlock(8)"));
}

TEST_F(degraded_visit, of_a_port_switched_off_meanwhile_releases_twice_and_stays_degraded) {
  ASSERT_EQ(pthread_mutex_lock(&second().port_mutex), 0);
  clear_record();
  polling.start_cycle();
  wait_for_a_mark();
  lum::shared_store(second().is_dom_enabled, 0);
  ASSERT_EQ(pthread_mutex_unlock(&second().port_mutex), 0);
  polling.wait_asleep();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                                    error(16, "module access failed with rc 5 for rsip=0x30007\n"),
                                    error(14, "module access lock failed with rc 5 \n"),
                                    info(15, "DOM thread: DOM is disabled-2for rsip=0x30008\n")));
  EXPECT_THAT(calls({"pthread_mutex_trylock"}), ElementsAre("pthread_mutex_trylock(8)"));
  EXPECT_THAT(calls({"pthread_mutex_lock"}), ElementsAre("pthread_mutex_lock(8)"));
  EXPECT_THAT(calls({"pthread_mutex_unlock"}), SizeIs(3)) << "one of them is this thread's";
  module(7).fail_transfers(0);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 5 \n"),
                                    info(13, not_polled("0x30008", 0, 0, 0))));
}

TEST_F(degraded_visit, cannot_release_a_mutex_that_somebody_else_has_taken_meanwhile) {
  module(8).put_be16(0, 14, 0x1900);
  std::promise<void> taken, let_go;
  int released = -1;
  std::thread other;
  modules.before_transfer = [&, transfer = 0u]() mutable {
    if (++transfer != attempts + 1) return;
    other = std::thread([&] {
      pthread_mutex_lock(&second().port_mutex);
      taken.set_value();
      let_go.get_future().wait();
      released = pthread_mutex_unlock(&second().port_mutex);
    });
    taken.get_future().wait();
  };
  cycle();
  EXPECT_EQ(pthread_mutex_trylock(&second().port_mutex), EBUSY);
  let_go.set_value();
  other.join();
  EXPECT_EQ(released, 0);
  EXPECT_EQ(second().module_temperature, 0x1900);
  EXPECT_EQ(second().led_state, 1u);
}

TEST_F(degraded_visit, that_succeeds_ends_the_degraded_form_whatever_the_led_does) {
  add(rsip + 2);
  script.fail_always("led_set_state", 5);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                                    error(16, "module access failed with rc 5 for rsip=0x30007\n"),
                                    error(14, "module access lock failed with rc 5 \n")));
  EXPECT_EQ(data_at(rsip + 2).led_state, 1u);
}

// ---- Half a visit ----

TEST_F(dom_thread, module_switched_off_between_the_two_reads_is_a_failed_read) {
  lum_port_data &port = add(rsip);
  modules.before_transfer = [&] { lum::shared_store(port.transceiver_disabled, 1); };
  cycle();
  EXPECT_THAT(traces(), ElementsAre(info(115, "HW not accessible for rsip=0x30007\n"),
                                    error(17, "module access failed with rc 2 \n")));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(1));
  EXPECT_THAT(calls({"led_set_state"}), IsEmpty());
  modules.before_transfer = nullptr;
  lum::shared_store(port.transceiver_disabled, 0);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 2 \n")));
}

TEST_F(dom_thread, failed_second_read_keeps_every_value) {
  const auto fill = [](uint8_t first) {
    for (uint32_t i = 0; i < 128; ++i) module().put(0, i, {static_cast<uint8_t>(first + i)});
    for (uint32_t i = 0; i < 23; ++i) module().put(3, 128 + i, {static_cast<uint8_t>(first + i)});
    module().put(0, 10, {0, 0, 0, first});
  };
  lum_port_data &port = add(rsip);
  fill(0);
  cycle();
  const std::vector<lum_dom_area> dom(std::begin(port.dom), std::end(port.dom));
  const std::vector<uint8_t> flags(std::begin(port.module_flags), std::end(port.module_flags));
  const uint32_t version = port.vendor.fw_version;
  const uint16_t word_16 = port.module_word_16;
  fill(1);
  for (unsigned nth = 2; nth <= 1 + attempts; ++nth) script.fail("i2c_read_block", nth, 9);
  cycle();
  EXPECT_EQ(std::memcmp(port.dom, dom.data(), sizeof port.dom), 0);
  EXPECT_THAT(port.module_flags, testing::ElementsAreArray(flags));
  EXPECT_EQ(port.vendor.fw_version, version);
  EXPECT_EQ(port.module_word_16, word_16);
  EXPECT_EQ(port.led_state, 1u);
}

TEST_F(dom_thread, visit_without_a_read_callback_stores_zeros) {
  lum_port_data &port = add(rsip);
  for (uint32_t i = 0; i < 128; ++i) module().put(0, i, {0x7F});
  cycle();
  ASSERT_EQ(port.led_state, 3u);
  lum_get_ctx()->platform_cbs.i2c_read_block = nullptr;
  cycle();
  for (const lum_dom_area &dom : port.dom) {
    EXPECT_THAT(dom.readings, Each(0));
    EXPECT_THAT(dom.status, Each(0));
  }
  EXPECT_THAT(port.module_flags, Each(0));
  EXPECT_EQ(port.vendor.fw_version, 0u);
  EXPECT_EQ(port.led_state, 1u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(dom_thread, visit_without_a_read_callback_ends_the_degraded_form) {
  add(rsip);
  module().fail_transfers(5);
  cycle();
  lum_get_ctx()->platform_cbs.i2c_read_block = nullptr;
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 5 \n")));
  cycle();
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(dom_thread, visit_is_made_without_a_mutex_that_is_not_to_be_had) {
  lum_port_data &port = add(rsip);
  module().put_be16(0, 14, 0x1900);
  watch(port.port_mutex, "port");
  script.fail("pthread_mutex_trylock", 1, EINVAL, &port.port_mutex);
  cycle();
  EXPECT_THAT(calls(port_locks),
              ElementsAre("pthread_mutex_trylock(port)", "pthread_mutex_unlock(port)"));
  EXPECT_THAT(calls(transfer_calls), SizeIs(2));
  EXPECT_EQ(port.module_temperature, 0x1900);
  EXPECT_THAT(traces(), IsEmpty());
}

}  // namespace

}  // namespace dom_thread_degraded_test
