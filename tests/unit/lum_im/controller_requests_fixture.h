// What the tests of requests to the interface manager share.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "controllers.h"

inline const support::area lum_im = {"lum_im"};

class requests : public support::running_library {
 protected:
  void SetUp() override {
    support::running_library::SetUp();
    support::add_created_port(rsip, 0x1001, 0x1002);
    support::add_created_port(rsip + 1, 0x1003, 0x1004);
    support::set_controller_count(10);
    support::clear_record();
  }
  static uint32_t controllers() { return lum_get_ctx()->controller_count; }
  static cerrno create(lum_controller_create_request *request) {
    return lum_controllers_create(request, names, types);
  }
  // The count of controllers at each line that begins so.
  static std::vector<uint32_t> counts_at(const char *beginning, const std::function<void()> &work) {
    std::vector<uint32_t> counts;
    support::at_trace = [&](const support::trace_line &line) {
      if (line.text.rfind(beginning, 0) == 0) counts.push_back(controllers());
    };
    work();
    support::at_trace = nullptr;
    return counts;
  }
  static constexpr uint32_t rsip = 0x30007;
  static constexpr const char *names[] = {"Ots0_3_0_7_0", "Ots0_3_0_7_1"};
  static constexpr uint16_t types[] = {188, 77};
};

// Owns a request of the test's own.
template <typename Request>
class held {
 public:
  explicit held(Request *request) : request_(request) {}
  ~held() { support::free_request(request_); }
  held(const held &) = delete;
  held &operator=(const held &) = delete;
  Request *operator->() const { return request_; }
  operator Request *() const { return request_; }

 private:
  Request *request_;
};
