// What is asked of the interface manager by one action, and what it makes of it.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "lum_linux/interface_manager.h"

namespace lumd {

class driver;

// Covers the batches that the library sends on this thread from its making to sent().
class im_request {
 public:
  // `what` is what is asked for, for people: "replay".
  im_request(driver &node, const char *what);

  // Nothing more is asked for. `rc` is the library's answer.
  void sent(cerrno rc);

  // No answer is to be waited for any more.
  bool is_settled() const;
  // Nothing has failed as yet, and answers are missing.
  bool is_pending() const;
  // Everything was answered, and nothing has failed.
  bool is_good() const;

  // Why it has not come about, as far as it is the manager's doing: one sentence, or nothing.
  // `wait` is how long it was waited for.
  std::string problem(std::chrono::milliseconds wait) const;

 private:
  lum_linux::interface_manager::account account_;
  const char *what_;
  cerrno rc_ = 0;
};

}  // namespace lumd
