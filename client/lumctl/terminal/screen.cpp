#include "terminal/screen.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "terminal/terminal.h"

namespace lumctl {
namespace {

// Alternate screen, no cursor, lines that do not go on; and all of that back.
constexpr std::string_view take_screen = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[H\x1b[2J";
constexpr std::string_view give_screen_back = "\x1b[?7h\x1b[?25h\x1b[?1049l";

constexpr std::array ending = {SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGABRT,
                               SIGSEGV, SIGBUS, SIGFPE,  SIGILL};

volatile sig_atomic_t stale = 0;
volatile sig_atomic_t keys_are_taken = 0;
termios keys_before = {};
termios keys_of_ours = {};

// From here to on_resize only what a signal handler may call.
void put(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void take() {
  if (keys_are_taken != 0) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &keys_of_ours);
  put(take_screen);
  stale = 1;
}

void give_back() {
  put(give_screen_back);
  if (keys_are_taken != 0) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &keys_before);
}

void handle(int number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  ::sigaction(number, &action, nullptr);
}

void on_interrupt(int) {
  give_back();
  ::_exit(0);
}

// The signal's own effect follows.
void raise_itself(int number) {
  handle(number, SIG_DFL);
  sigset_t itself;
  sigemptyset(&itself);
  sigaddset(&itself, number);
  ::pthread_sigmask(SIG_UNBLOCK, &itself, nullptr);
  ::raise(number);
}

void on_end(int number) {
  give_back();
  raise_itself(number);
}

void on_stop(int number) {
  const int error = errno;
  give_back();
  raise_itself(number);
  handle(number, on_stop);  // it goes on
  errno = error;
}

// Also after a stop that nobody can see coming, by SIGSTOP.
void on_continue(int) {
  const int error = errno;
  take();
  errno = error;
}

void on_resize(int) { stale = 1; }

// Each key by itself and unseen; those that make signals still do.
void take_keys() {
  if (!has_keys() || ::tcgetattr(STDIN_FILENO, &keys_before) != 0) return;
  keys_of_ours = keys_before;
  keys_of_ours.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys_of_ours.c_cc[VMIN] = 1;
  keys_of_ours.c_cc[VTIME] = 0;
  keys_are_taken = 1;
}

}  // namespace

screen::screen() {
  take_keys();
  handle(SIGINT, on_interrupt);
  for (const int number : ending) handle(number, on_end);
  handle(SIGTSTP, on_stop);
  handle(SIGCONT, on_continue);
  handle(SIGWINCH, on_resize);
  take();
}

screen::~screen() {
  for (const int number : {SIGCONT, SIGTSTP, SIGWINCH}) handle(number, SIG_DFL);
  give_back();
  handle(SIGINT, SIG_DFL);
  for (const int number : ending) handle(number, SIG_DFL);
  keys_are_taken = 0;
}

void screen::draw(const std::vector<std::string> &lines) {
  std::string picture = "\x1b[H";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    // Erased before it is drawn: behind a line that fills the terminal the cursor stands on its
    // last character.
    picture += (i > 0 ? "\r\n\x1b[K" : "\x1b[K") + lines[i];
  }
  if (lines.size() < screen_size().rows) picture += "\r\n\x1b[J";
  put(picture);
}

bool screen::is_stale() {
  const bool is = stale != 0;
  stale = 0;
  return is;
}

bool can_draw() { return is_steerable(STDOUT_FILENO); }

bool is_output_seen() { return ::isatty(STDOUT_FILENO) == 1; }

bool has_keys() { return ::isatty(STDIN_FILENO) == 1; }

}  // namespace lumctl
