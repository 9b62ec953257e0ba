#include "terminal/screen.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>
#include <vector>

#include "terminal/terminal.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

// Alternate screen, no cursor, long lines cut; and all of that back.
constexpr std::string_view take = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[H\x1b[2J";
constexpr std::string_view give_back = "\x1b[?7h\x1b[?25h\x1b[?1049l";

volatile sig_atomic_t size_has_changed = 0;

// Only what a signal handler may call.
void put(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void on_interrupt(int) {
  put(give_back);
  ::_exit(0);
}

// The signal's own effect follows.
void on_end(int number) {
  put(give_back);
  ::signal(number, SIG_DFL);
  ::raise(number);
}

void on_resize(int) { size_has_changed = 1; }

void handle(int number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  ::sigaction(number, &action, nullptr);
}

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace

screen::screen() {
  handle(SIGINT, on_interrupt);
  for (const int number : {SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) handle(number, on_end);
  handle(SIGWINCH, on_resize);
  put(take);
}

screen::~screen() {
  put(give_back);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGWINCH}) {
    handle(number, SIG_DFL);
  }
}

void screen::draw(const std::string &text) {
  auto lines = lines_of(text);
  const std::size_t rows = terminal_rows();
  std::string more;
  if (lines.size() > rows) {
    more = "... " + lum_wording::counted(lines.size() - rows + 1, "more line");
    lines.resize(rows - 1);
    lines.push_back(more);
  }
  std::string picture = "\x1b[H";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) picture += "\r\n";
    picture += std::string(lines[i]) + "\x1b[K";
  }
  put(picture + "\x1b[J");
}

bool screen::resized() {
  const bool has = size_has_changed != 0;
  size_has_changed = 0;
  return has;
}

bool can_draw() { return is_steerable(STDOUT_FILENO); }

}  // namespace lumctl
