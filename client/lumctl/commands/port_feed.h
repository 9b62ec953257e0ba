// What the driver says of its ports, asked for again and again on a thread of its own: whoever
// looks at it never waits.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "commands/port_selection.h"

namespace lumctl {

// One look at the driver.
struct port_news {
  api_result polling;
  api_result ports;

  const api_result &failure() const { return polling.what == outcome::done ? ports : polling; }
  bool good() const { return failure().what == outcome::done; }
};

// Asks both questions, and waits for the answers.
port_news ask_for_news(const session &now, const port_selection &wanted);

// Waits until a picture with this news ought to be followed by another: for `interval` seconds or,
// where that is 0 or the driver has gone, until a polling cycle ends or it comes and goes.
// `is_over` passes the time of each pause, and ends it where it returns true.
void wait_for_next(const session &now, const port_news &shown, double interval,
                   const std::function<bool(std::chrono::milliseconds pause)> &is_over);

class port_feed {
 public:
  port_feed(const session &now, const port_selection &wanted, double interval);
  ~port_feed();
  port_feed(const port_feed &) = delete;
  port_feed &operator=(const port_feed &) = delete;

  // Readable when there is news.
  int descriptor() const;
  std::optional<port_news> take();

  // For how long the driver has owed an answer.
  std::chrono::seconds waiting() const;

 private:
  struct shared;
  std::shared_ptr<shared> state_;
};

}  // namespace lumctl
