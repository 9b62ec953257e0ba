#include "lum_linux/leds.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

constexpr cerrno no_led = ENOENT;
constexpr cerrno bad_argument = EINVAL;
constexpr uint32_t default_brightness = 1;  // of an LED that does not tell its greatest

// Which of the two LEDs a state lights.
struct look {
  uint32_t state;
  bool green;
  bool red;
};
constexpr std::array<look, 4> looks = {{
    {0, false, false},
    {1, true, false},
    {2, true, true},
    {3, false, true},
}};

fs::path green_of(const fs::path &root, const std::string &name) {
  return root / (name + ":green:status");
}
fs::path red_of(const fs::path &root, const std::string &name) {
  return root / (name + ":red:fault");
}

unique_fd open_file(const fs::path &file, int flags, cerrno &rc) {
  unique_fd fd(::open(file.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644));
  struct stat info = {};
  if (!fd || ::fstat(fd.get(), &info) != 0) {
    rc = static_cast<cerrno>(errno);
    return unique_fd();
  }
  if (!S_ISREG(info.st_mode)) {
    rc = EIO;
    return unique_fd();
  }
  return fd;
}

cerrno read_text(const fs::path &file, std::string &text) {
  cerrno rc = 0;
  const unique_fd fd = open_file(file, O_RDONLY, rc);
  if (!fd) return rc;
  std::array<char, 4096> buffer;  // the kernel's files hold a page at most
  ssize_t count = 0;
  do {
    count = ::read(fd.get(), buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) return static_cast<cerrno>(errno);
  text.assign(buffer.data(), static_cast<std::size_t>(count));
  return 0;
}

// Cuts an ordinary file behind the new text rather than before writing it, so that a reader never
// finds it empty. The kernel's files cannot be cut and need not be.
cerrno write_text(const fs::path &file, std::string_view text, int flags = 0) {
  cerrno rc = 0;
  const unique_fd fd = open_file(file, O_WRONLY | flags, rc);
  if (!fd) return rc;
  ssize_t count = 0;
  do {
    count = ::write(fd.get(), text.data(), text.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) return static_cast<cerrno>(errno);
  if (static_cast<std::size_t>(count) != text.size()) return EIO;
  [[maybe_unused]] const int cut = ::ftruncate(fd.get(), count);
  return 0;
}

cerrno read_number(const fs::path &file, uint32_t &number) {
  std::string text;
  const cerrno rc = read_text(file, text);
  if (rc != 0) return rc;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool is_all = end == text.data() + text.size() || *end == '\n';
  return code == std::errc() && is_all ? 0 : EIO;
}

cerrno is_lit(const fs::path &led, bool &lit) {
  uint32_t brightness = 0;
  const cerrno rc = read_number(led / "brightness", brightness);
  if (rc == 0) lit = brightness != 0;
  return rc;
}

// A trigger left over from somewhere would go on changing the brightness. The active one stands in
// brackets.
cerrno take_from_trigger(const fs::path &led) {
  std::string triggers;
  if (read_text(led / "trigger", triggers) != 0) return 0;
  const auto open = triggers.find('[');
  if (open == std::string::npos || triggers.compare(open, 6, "[none]") == 0) return 0;
  return write_text(led / "trigger", "none\n");
}

cerrno light(const fs::path &led, bool lit) {
  cerrno rc = take_from_trigger(led);
  if (rc != 0) return rc;
  uint32_t target = 0;
  if (lit && read_number(led / "max_brightness", target) != 0) target = default_brightness;
  uint32_t now = 0;
  rc = read_number(led / "brightness", now);
  if (rc == 0 && now == target) return 0;
  if (rc != 0 && rc != EIO) return rc;  // EIO: nonsense in the file, to be overwritten
  return write_text(led / "brightness", std::to_string(target) + "\n");
}

bool is_led_class(const fs::path &root) {
  struct statfs info = {};
  return ::statfs(root.c_str(), &info) == 0 && info.f_type == SYSFS_MAGIC;
}

// What cannot be made is missing afterwards, which the calls report.
void make_led(const fs::path &led) {
  std::error_code code;
  fs::create_directories(led, code);
  write_text(led / "max_brightness", "1\n", O_CREAT | O_EXCL);
  write_text(led / "brightness", "0\n", O_CREAT | O_EXCL);
}

std::map<uint32_t, std::string> names_of(const node_description &node) {
  std::map<uint32_t, std::string> names;
  for (const port_description *port : node.ports()) names[port->rsip] = port->led;
  return names;
}

}  // namespace

leds::leds(const node_description &node) : leds(node.led_directory, names_of(node)) {}

leds::leds(fs::path root, const std::map<uint32_t, std::string> &names) : root_(std::move(root)) {
  const bool is_kernels = is_led_class(root_);
  for (const auto &[rsip, name] : names) {
    pair_of_leds &pair = pairs_[rsip];
    pair.name = name;
    if (pair.name.empty()) continue;
    if (!is_kernels) make_led(green_of(root_, pair.name));
    if (!is_kernels) make_led(red_of(root_, pair.name));
    uint32_t state = 0;
    get(pair, state);
  }
}

cerrno leds::get_state(uint32_t rsip, uint32_t *state) {
  const auto found = pairs_.find(rsip);
  if (found == pairs_.end() || !state) return bad_argument;
  if (found->second.name.empty()) return no_led;
  const std::lock_guard held(mutex_);
  return get(found->second, *state);
}

cerrno leds::set_state(uint32_t rsip, uint32_t state) {
  const auto found = pairs_.find(rsip);
  if (found == pairs_.end() || state >= looks.size()) return bad_argument;
  if (found->second.name.empty()) return 0;
  const std::lock_guard held(mutex_);
  return set(found->second, state);
}

std::optional<led_trouble> leds::trouble(uint32_t rsip) const {
  const auto found = pairs_.find(rsip);
  if (found == pairs_.end()) return std::nullopt;
  const std::lock_guard held(mutex_);
  return found->second.trouble;
}

void leds::retry() {
  for (auto &[rsip, pair] : pairs_) {
    const std::lock_guard held(mutex_);
    if (!pair.trouble) continue;
    uint32_t state = 0;
    pair.wanted ? set(pair, *pair.wanted) : get(pair, state);
  }
}

cerrno leds::get(pair_of_leds &pair, uint32_t &state) {
  bool green = false;
  bool red = false;
  fs::path led = green_of(root_, pair.name);
  cerrno rc = is_lit(led, green);
  if (rc == 0) rc = is_lit(led = red_of(root_, pair.name), red);
  // An LED that can be read is not one that can be set.
  const bool was_set_in_vain = pair.trouble && pair.trouble->wanted;
  if (!was_set_in_vain && (rc != 0 || !pair.wanted)) note(pair, rc, led);
  if (rc != 0) return rc;
  for (const look &known : looks) {
    if (known.green == green && known.red == red) state = known.state;
  }
  return 0;
}

// Both are tried: one broken LED does not leave the other one stale.
cerrno leds::set(pair_of_leds &pair, uint32_t state) {
  pair.wanted = state;
  const cerrno green = light(green_of(root_, pair.name), looks[state].green);
  const cerrno red = light(red_of(root_, pair.name), looks[state].red);
  const cerrno rc = green != 0 ? green : red;
  note(pair, rc, green != 0 ? green_of(root_, pair.name) : red_of(root_, pair.name));
  return rc;
}

void leds::note(pair_of_leds &pair, cerrno rc, const fs::path &led) {
  pair.trouble.reset();
  if (rc != 0) pair.trouble = {led, rc, pair.wanted};
}

}  // namespace lum_linux
