#include "lum_linux/leds.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <functional>
#include <future>
#include <mutex>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "modules/kept_file.h"
#include "modules/look_round.h"
#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

constexpr cerrno no_led = ENOENT;
constexpr cerrno bad_argument = EINVAL;
constexpr uint32_t default_brightness = 1;  // of an LED that does not tell its greatest

// Which of the two LEDs a state lights.
struct look_of_pair {
  uint32_t state;
  bool green;
  bool red;
};
constexpr std::array<look_of_pair, 4> looks = {{
    {0, false, false},
    {1, true, false},
    {2, true, true},
    {3, false, true},
}};

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

cerrno number_in(std::string_view text, uint32_t &number) {
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool is_all = end == text.data() + text.size() || *end == '\n';
  return code == std::errc() && is_all ? 0 : EIO;
}

cerrno read_number(const fs::path &file, uint32_t &number) {
  std::string text;
  const cerrno rc = read_text(file, text);
  return rc != 0 ? rc : number_in(text, number);
}

// How much is asked before a file that is open is taken for the LED's.
enum class trust : uint8_t { its_name, the_path };

// One of a pair. What it shows is read in each polling cycle, so that file stays open.
struct single_led {
  explicit single_led(fs::path at) : folder(std::move(at)), brightness(folder / "brightness") {}

  cerrno read_brightness(uint32_t &number, trust in);

  const fs::path folder;
  const fs::path brightness;

 private:
  ssize_t read_kept(trust in, std::array<char, 64> &buffer, int &error);

  kept_file kept_;
};

// Below 0 with the errno on failure; whatever is at the path is opened anew then.
ssize_t single_led::read_kept(trust in, std::array<char, 64> &buffer, int &error) {
  const int fd = in == trust::the_path ? kept_.open(brightness, error)
                                       : kept_.open_while_named(brightness, error);
  if (fd < 0) return -1;
  ssize_t count = 0;
  do {
    count = ::pread(fd, buffer.data(), buffer.size(), 0);
  } while (count < 0 && errno == EINTR);
  if (count >= 0) return count;
  error = errno;
  kept_.close();
  return count;
}

// A kernel's LED that has gone fails in its own way while its file is open: the path tells.
cerrno single_led::read_brightness(uint32_t &number, trust in) {
  std::array<char, 64> buffer;
  int error = 0;
  ssize_t count = read_kept(in, buffer, error);
  if (count < 0 && error == ENODEV) count = read_kept(in, buffer, error);
  if (count < 0) return static_cast<cerrno>(error);
  return number_in({buffer.data(), static_cast<std::size_t>(count)}, number);
}

cerrno is_lit(single_led &led, trust in, bool &lit) {
  uint32_t brightness = 0;
  const cerrno rc = led.read_brightness(brightness, in);
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

cerrno light(single_led &led, bool lit) {
  cerrno rc = take_from_trigger(led.folder);
  if (rc != 0) return rc;
  uint32_t target = 0;
  if (lit && read_number(led.folder / "max_brightness", target) != 0) target = default_brightness;
  uint32_t now = 0;
  rc = led.read_brightness(now, trust::the_path);
  if (rc == 0 && now == target) return 0;
  if (rc != 0 && rc != EIO) return rc;  // EIO: nonsense in the file, to be overwritten
  return write_text(led.brightness, std::to_string(target) + "\n");
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

constexpr std::chrono::milliseconds patience(250);  // with whoever has a pair
constexpr std::chrono::seconds hung_after(2);
constexpr unsigned looks_by_path = 12;  // one of so many, which is once a minute

std::map<uint32_t, std::string> names_of(const node_description &node) {
  std::map<uint32_t, std::string> names;
  for (const port_description *port : node.ports()) names[port->rsip] = port->led;
  return names;
}

}  // namespace

// Two locks: the files belong to one caller at a time, and what is known can be asked meanwhile.
struct leds::pair_of_leds {
  using clock = std::chrono::steady_clock;

  pair_of_leds(const fs::path &root, const std::string &name, bool make)
      : green(root / (name + ":green:status")), red(root / (name + ":red:fault")), to_make(make) {}

  // By whoever wants the state: before set_state(), and where that was of no use, so that the next
  // look sets it.
  void want(uint32_t state);
  void note_in_vain(uint32_t state);
  cerrno set_state(uint32_t state);
  cerrno get_state(uint32_t &state);
  // Whoever has the files has had them for so long that waiting for them is of no use.
  bool is_stuck() const;
  void look();
  led_status status() const;

  single_led green;  // the two of them belong to whoever has the files
  single_led red;
  bool to_make;  // below an ordinary folder, until they have been made
  std::atomic<bool> looked_at{false};

 private:
  class use;  // has the files while it lives

  cerrno set(uint32_t state);
  cerrno get(uint32_t &state, trust in);
  void note_set(cerrno rc, const fs::path &led, uint32_t state);
  void note_seen(cerrno rc, const fs::path &led, uint32_t state);

  std::timed_mutex files_;
  unsigned looks_ = 0;        // under files_
  mutable std::mutex facts_;  // guards the rest; never held while a file is used
  std::optional<clock::time_point> busy_since_;
  std::optional<uint32_t> wanted_;
  led_status known_;
};

class leds::pair_of_leds::use {
 public:
  explicit use(pair_of_leds &pair) : pair_(pair), held_(pair.files_, patience) {
    const std::lock_guard lock(pair_.facts_);
    if (held_) pair_.busy_since_ = clock::now();
  }
  ~use() {
    const std::lock_guard lock(pair_.facts_);
    if (held_) pair_.busy_since_.reset();
  }
  use(const use &) = delete;
  use &operator=(const use &) = delete;
  explicit operator bool() const { return held_.owns_lock(); }

 private:
  pair_of_leds &pair_;
  std::unique_lock<std::timed_mutex> held_;
};

void leds::pair_of_leds::want(uint32_t state) {
  const std::lock_guard lock(facts_);
  wanted_ = state;
}

void leds::pair_of_leds::note_in_vain(uint32_t state) {
  {
    const std::lock_guard lock(facts_);
    if (known_.state == state && !known_.trouble) return;
  }
  note_set(ETIMEDOUT, green.folder, state);
}

bool leds::pair_of_leds::is_stuck() const {
  const std::lock_guard lock(facts_);
  return busy_since_ && clock::now() - *busy_since_ > patience;
}

cerrno leds::pair_of_leds::set_state(uint32_t state) {
  const use files(*this);
  return files ? set(state) : EBUSY;
}

cerrno leds::pair_of_leds::get_state(uint32_t &state) {
  const use files(*this);
  return files ? get(state, trust::the_path) : EBUSY;
}

void leds::pair_of_leds::look() {
  const use files(*this);
  if (!files) return;
  if (std::exchange(to_make, false)) {
    make_led(green.folder);
    make_led(red.folder);
  }
  std::optional<uint32_t> to_set;
  {
    const std::lock_guard lock(facts_);
    if (known_.trouble) to_set = wanted_;
  }
  uint32_t state = 0;
  const trust in = looks_++ % looks_by_path == 0 ? trust::the_path : trust::its_name;
  to_set ? set(*to_set) : get(state, in);
}

led_status leds::pair_of_leds::status() const {
  const std::lock_guard lock(facts_);
  led_status now = known_;
  if (busy_since_ && clock::now() - *busy_since_ > hung_after) {
    now.state.reset();
    now.trouble = {green.folder, ETIMEDOUT, wanted_};
  }
  return now;
}

cerrno leds::pair_of_leds::get(uint32_t &state, trust in) {
  bool is_green = false;
  bool is_red = false;
  single_led *led = &green;
  cerrno rc = is_lit(green, in, is_green);
  if (rc == 0) rc = is_lit(*(led = &red), in, is_red);
  for (const look_of_pair &known : looks) {
    if (rc == 0 && known.green == is_green && known.red == is_red) state = known.state;
  }
  note_seen(rc, led->folder, state);
  return rc;
}

// Both are tried: one broken LED does not leave the other one stale.
cerrno leds::pair_of_leds::set(uint32_t state) {
  const cerrno of_green = light(green, looks[state].green);
  const cerrno of_red = light(red, looks[state].red);
  const cerrno rc = of_green != 0 ? of_green : of_red;
  note_set(rc, of_green != 0 ? green.folder : red.folder, state);
  return rc;
}

void leds::pair_of_leds::note_set(cerrno rc, const fs::path &led, uint32_t state) {
  const std::lock_guard lock(facts_);
  known_.state.reset();
  known_.trouble.reset();
  if (rc != 0) {
    known_.trouble = {led, rc, state};
    return;
  }
  known_.state = state;
  known_.known_at = clock::now();
  // Another state has been wanted while the files did not answer: the next look sets it.
  if (wanted_ && *wanted_ != state) known_.trouble = {led, ETIMEDOUT, wanted_};
}

// An LED that can be read is not one that can be set.
void leds::pair_of_leds::note_seen(cerrno rc, const fs::path &led, uint32_t state) {
  const std::lock_guard lock(facts_);
  const bool was_set_in_vain = known_.trouble && known_.trouble->wanted;
  if (!was_set_in_vain) known_.trouble.reset();
  known_.state.reset();
  if (rc == 0) {
    known_.state = state;
    known_.known_at = clock::now();
  } else if (!was_set_in_vain) {
    known_.trouble = {led, rc, wanted_};
  }
}

leds::leds(const node_description &node) : leds(node.led_directory, names_of(node)) {}

leds::leds(const fs::path &root, const std::map<uint32_t, std::string> &names) {
  const bool is_kernels = is_led_class(root);
  for (const auto &[rsip, name] : names) {
    auto &pair = pairs_[rsip];
    if (!name.empty()) pair = std::make_shared<pair_of_leds>(root, name, !is_kernels);
  }
  // One that gets round, and for each pair one that may hang and one that gives up waiting for it.
  lookers_ = std::make_unique<lanes>("lum_leds", lane_limits{2 * pairs_.size() + 1, 1});
  look();
}

leds::~leds() = default;

// On another thread, as the files may not answer: who wants the LED, such as the one that polls all
// modules, waits a moment for the result and goes on without. Without a thread this one does it.
cerrno leds::within_patience(uint32_t rsip, const pair_of_leds &pair,
                             std::function<cerrno()> work) {
  if (pair.is_stuck()) return EBUSY;
  const auto task = std::make_shared<std::packaged_task<cerrno()>>(std::move(work));
  std::future<cerrno> result = task->get_future();
  const lane_verdict verdict = lookers_->post(rsip, [task] { (*task)(); });
  if (verdict == lane_verdict::full) return EBUSY;
  if (verdict != lane_verdict::taken) (*task)();
  return result.wait_for(patience) == std::future_status::ready ? result.get() : EBUSY;
}

cerrno leds::get_state(uint32_t rsip, uint32_t *state) {
  if (!pairs_.contains(rsip) || !state) return bad_argument;
  const auto pair = find(rsip);
  if (!pair) return no_led;
  const auto seen = std::make_shared<uint32_t>(*state);
  const cerrno rc = within_patience(rsip, *pair, [pair, seen] { return pair->get_state(*seen); });
  if (rc == 0) *state = *seen;
  return rc;
}

cerrno leds::set_state(uint32_t rsip, uint32_t state) {
  if (!pairs_.contains(rsip) || state >= looks.size()) return bad_argument;
  const auto pair = find(rsip);
  if (!pair) return 0;
  pair->want(state);
  const cerrno rc = within_patience(rsip, *pair, [pair, state] { return pair->set_state(state); });
  if (rc == EBUSY) pair->note_in_vain(state);
  return rc;
}

std::optional<led_status> leds::status(uint32_t rsip) const {
  const auto pair = find(rsip);
  return pair ? std::optional(pair->status()) : std::nullopt;
}

std::optional<led_trouble> leds::trouble(uint32_t rsip) const {
  const auto known = status(rsip);
  return known ? known->trouble : std::nullopt;
}

bool leds::in_trouble() const {
  return std::any_of(pairs_.begin(), pairs_.end(),
                     [](const auto &one) { return one.second && one.second->status().trouble; });
}

// Which pair is looked at: until the look has ended, or is dropped because no thread came for it.
class leds::one_look {
 public:
  explicit one_look(std::shared_ptr<pair_of_leds> pair) : pair_(std::move(pair)) {}
  ~one_look() { end(); }
  one_look(const one_look &) = delete;
  one_look &operator=(const one_look &) = delete;

  // False where it is looked at already.
  bool begin() { return is_mine_ = !pair_->looked_at.exchange(true); }
  void run() {
    try {
      pair_->look();
    } catch (const std::bad_alloc &) {
      // The next look may have the memory.
    }
    end();
  }

 private:
  void end() {
    if (std::exchange(is_mine_, false)) pair_->looked_at = false;
  }

  std::shared_ptr<pair_of_leds> pair_;
  bool is_mine_ = false;
};

void leds::look() {
  const auto round = std::make_shared<look_round>();
  for (const auto &[rsip, pair] : pairs_) {
    if (!pair) continue;
    auto look = std::make_shared<one_look>(pair);
    if (!look->begin()) continue;
    round->looks.push_back([look = std::move(look)] { look->run(); });
  }
  round->run(*lookers_);
}

std::shared_ptr<leds::pair_of_leds> leds::find(uint32_t rsip) const {
  const auto found = pairs_.find(rsip);
  return found == pairs_.end() ? nullptr : found->second;
}

}  // namespace lum_linux
