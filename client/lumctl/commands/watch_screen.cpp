#include "commands/watch_screen.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "command_line/status.h"
#include "commands/watch_view.h"
#include "terminal/keys.h"
#include "terminal/screen.h"
#include "terminal/terminal.h"

namespace lumctl {
namespace {

// How long the view stands without being looked over, and how long a key may take to come whole.
constexpr int between_looks_ms = 1000;
constexpr int within_a_key_ms = 50;

class watcher {
 public:
  watcher(const session &now, const watching &wanted)
      : count_(wanted.count),
        view_(wanted.ports, wanted.wish, now.output, has_keys()),
        feed_(now, wanted.ports, wanted.interval) {}

  int run(const port_news &first) {
    show(first);
    for (;;) {
      draw();
      if (over_) return exit_done;
      wait();
    }
  }

 private:
  void show(const port_news &news) {
    view_.take(news);
    if (news.good() && count_ != 0 && ++shown_ >= count_) over_ = true;
    changed_ = true;
  }

  void draw() {
    if (screen_.is_stale()) changed_ = true;
    if (changed_) screen_.draw(view_.lines(screen_size()));
    changed_ = false;
  }

  // For news, keys, signals, or the next look over what is known.
  void wait() {
    std::array<pollfd, 2> ready = {
        {{feed_.descriptor(), POLLIN, 0}, {!has_keys() ? -1 : STDIN_FILENO, POLLIN, 0}}};
    const int timeout = keys_.is_waiting() ? within_a_key_ms : between_looks_ms;
    const int count = ::poll(ready.data(), ready.size(), timeout);
    if (count == 0) press(keys_.take_rest());
    if (count > 0 && ready[0].revents != 0) {
      if (const auto news = feed_.take()) show(*news);
    }
    if (count > 0 && ready[1].revents != 0) read_keys();
    if (view_.wait_for_answer(feed_.waiting())) changed_ = true;
  }

  void read_keys() {
    std::array<char, 256> bytes = {};
    const ssize_t got = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got > 0) {
      press(keys_.take({bytes.data(), static_cast<std::size_t>(got)}));
    } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
      over_ = true;  // the terminal has gone
    }
  }

  void press(const std::vector<key> &keys) {
    for (const key &one : keys) {
      if (!view_.press(one)) over_ = true;
      changed_ = true;
    }
  }

  unsigned count_;
  unsigned shown_ = 0;
  bool over_ = false;
  bool changed_ = false;
  key_reader keys_;
  watch_view view_;
  port_feed feed_;
  screen screen_;
};

}  // namespace

int watch_on_screen(const session &now, const watching &wanted, const port_news &first) {
  return watcher(now, wanted).run(first);
}

}  // namespace lumctl
