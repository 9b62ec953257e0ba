// What the tests of the polling thread share.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>
#include <thread>

#include "base/shared.h"
#include "library.h"

namespace dom_thread_fixture {

inline constexpr uint32_t rsip = 0x30007;

inline const std::initializer_list<std::string_view> transfer_calls = {
    "i2c_read_byte", "i2c_read_block", "i2c_write_byte"};
inline const std::initializer_list<std::string_view> port_locks = {
    "pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock"};

// The line of a port that is left out.
inline std::string not_polled(const char *at, int enabled, unsigned upgrading, int disabled) {
  char text[160];
  std::snprintf(text, sizeof text,
                "DOM thread: DOM is disabled for rsip=%s, is_dom_enabled %d, "
                "module_fw_upg_in_prog %u, transceiver_disabled %d\n",
                at, enabled, upgrading, disabled);
  return text;
}

// Waits until a thread stands at a mutex.
inline void wait_for_a_mark() {
  while (support::calls({"ptd_set_mutex_block"}).empty()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Controllers exist, and so do the ports that a test adds.
class dom_thread : public support::running_library {
 protected:
  void SetUp() override {
    support::running_library::SetUp();
    support::set_controller_count(2);
  }
  static lum_port_data &add(uint32_t at) { return support::add_polled_port(at).data; }
  static void cycle() {
    support::clear_record();
    support::polling.run_cycle();
  }
  static support::module_memory &module(uint32_t port = 7) {
    return support::modules.at(3, 0, port);
  }
};

}  // namespace dom_thread_fixture
