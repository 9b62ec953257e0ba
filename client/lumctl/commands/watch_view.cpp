#include "commands/watch_view.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "printing/polling_text.h"
#include "printing/port_order.h"
#include "terminal/glyphs.h"
#include "terminal/printable.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

constexpr std::size_t hang = 4;
constexpr std::size_t fewest_rows = 3;  // of the table, before its titles scroll with it
constexpr std::size_t status_lines = 1;
constexpr std::chrono::seconds patient(3);

// What the key for sorting goes through; the driver's own order is empty.
constexpr std::array<std::string_view, 7> orders = {
    "", worst_first, "state", "alarms", "temperature", "age", "power-0:0"};

std::string time_of_day() { return fmt::format("{:%H:%M:%S}", fmt::localtime(std::time(nullptr))); }

// The lines of a text as they fit into so many columns.
std::vector<std::string> lines_of(const std::string &text, std::size_t columns) {
  std::vector<std::string> lines;
  const std::string folded = wrapped_lines(text, columns, hang);
  for (std::size_t start = 0; start < folded.size();) {
    const std::size_t end = std::min(folded.find('\n', start), folded.size());
    lines.push_back(folded.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

void append(std::vector<std::string> &lines, const std::vector<std::string> &more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

// As something that was true once.
void make_old(std::vector<std::string> &lines, const style &output) {
  for (std::string &line : lines) line = painted(output, uncoloured(line), colour::faint);
}

const char *name_of(ports_form form) {
  switch (form) {
    case ports_form::full:
      return "full";
    case ports_form::brief:
      return "brief";
    case ports_form::wide:
      return "wide";
    case ports_form::fitting:
      break;
  }
  return "fitting";
}

void drop_last_character(std::string &text) {
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.pop_back();
  if (!text.empty()) text.pop_back();
}

}  // namespace

struct watch_view::sheet {
  std::vector<std::string> titles;
  std::vector<std::string> rows;
  std::size_t ports = 0;
  std::size_t of = 0;
};

watch_view::watch_view(const port_selection &wanted, const ports_wish &wish, const style &output,
                       bool has_keys)
    : wanted_(wanted), wish_(wish), output_(output), has_keys_(has_keys) {}

void watch_view::take(const port_news &news) {
  waiting_ = std::chrono::seconds(0);
  if (!news.good()) {
    if (failure_.empty()) failing_since_ = time_of_day();
    failure_ = printable(news.failure().error);
    return;
  }
  failure_.clear();
  taken_at_ = time_of_day();
  polling_ = describe_polling(*news.polling.body);
  before_ = std::exchange(ports_, news.ports.body);
}

bool watch_view::wait_for_answer(std::chrono::seconds time) {
  const bool was_old = is_old();
  const bool shows = time != waiting_ && failure_.empty();
  waiting_ = time;
  return shows && (was_old || is_old());
}

bool watch_view::is_old() const { return !failure_.empty() || waiting_ >= patient; }

bool watch_view::press(const key &pressed) {
  if (filter_before_) {
    press_in_filter(pressed);
    return true;
  }
  switch (pressed.kind) {
    case key_kind::up:
      move(-1);
      break;
    case key_kind::down:
    case key_kind::enter:
      move(1);
      break;
    case key_kind::page_up:
      move(-page_);
      break;
    case key_kind::page_down:
      move(page_);
      break;
    case key_kind::home:
      first_row_ = 0;
      break;
    case key_kind::end:
      first_row_ = std::numeric_limits<long>::max();
      break;
    case key_kind::escape:
      wanted_.filter.clear();
      break;
    case key_kind::character:
      if (pressed.text == "q") return false;
      press_letter(pressed.text);
      break;
    case key_kind::backspace:
    case key_kind::other:
      break;
  }
  return true;
}

void watch_view::press_letter(const std::string &letter) {
  if (letter == "k") move(-1);
  if (letter == "j") move(1);
  if (letter == " ") move(page_);
  if (letter == "s") sort_by_next();
  if (letter == "r") wanted_.reversed = !wanted_.reversed;
  if (letter == "/") filter_before_ = wanted_.filter;
  if (letter == "b") {
    wish_.columns.clear();
    wish_.form = wish_.form == ports_form::fitting ? ports_form::brief
                 : wish_.form == ports_form::brief ? ports_form::full
                                                   : ports_form::fitting;
  }
}

void watch_view::press_in_filter(const key &pressed) {
  if (pressed.kind == key_kind::character) wanted_.filter += pressed.text;
  if (pressed.kind == key_kind::backspace) drop_last_character(wanted_.filter);
  if (pressed.kind == key_kind::escape) wanted_.filter = *filter_before_;
  if (pressed.kind == key_kind::escape || pressed.kind == key_kind::enter) filter_before_.reset();
  first_row_ = 0;
}

void watch_view::move(long lines) { first_row_ = std::max(0L, first_row_ + lines); }

void watch_view::sort_by_next() {
  const auto at = std::find(orders.begin(), orders.end(), wanted_.order);
  wanted_.order = at == orders.end() || at + 1 == orders.end() ? orders.front() : *(at + 1);
}

std::string watch_view::headline(const style &output) const {
  if (!failure_.empty()) {
    return painted(output, fmt::format("no driver since {}, trying again", failing_since_),
                   colour::bad) +
           "\n" + failure_ + "\n" + painted(output, old_words(), colour::bad) + "\n";
  }
  if (is_old()) {
    return painted(output, fmt::format("no answer of the driver for {} s", waiting_.count()),
                   colour::bad) +
           "\n" + painted(output, old_words(), colour::bad) + "\n";
  }
  return painted(output, polling_, colour::strong) + "\n";
}

// Values that look new are never old ones: what cannot be dimmed goes.
std::string watch_view::old_words() const {
  if (output_.colours) return fmt::format("what stands below is old, of {}", taken_at_);
  return fmt::format("what was known at {} is not shown, for it is old", taken_at_);
}

std::string watch_view::keys_line() const {
  if (filter_before_)
    return fmt::format("filter: {}_  (Enter keeps it, Esc does not)", printable(wanted_.filter));
  if (!has_keys_) return "an interrupt ends this";
  return "q quit  / filter  s sort  r reverse  b form  up, down scroll";
}

std::string watch_view::status_line(const sheet &drawn) const {
  std::string text = drawn.ports == drawn.of ? lum_wording::counted(drawn.of, "port")
                                             : fmt::format("{} of {}", drawn.ports,
                                                           lum_wording::counted(drawn.of, "port"));
  if (static_cast<std::size_t>(last_row_ - first_row_) < drawn.rows.size()) {
    text += fmt::format(", lines {}-{} of {}", first_row_ + 1, last_row_, drawn.rows.size());
  }
  if (!wanted_.order.empty()) text += ", sorted by " + wanted_.order;
  if (wanted_.reversed) text += ", reversed";
  if (!wanted_.filter.empty() && !filter_before_) {
    text += fmt::format(", filter \"{}\"", printable(wanted_.filter));
  }
  if (wish_.form != ports_form::fitting) text += fmt::format(", {}", name_of(wish_.form));
  if (!output_.colours) text += fmt::format(", {} changed", change_mark);
  return text;
}

watch_view::sheet watch_view::draw(const style &output) const {
  sheet drawn;
  if (ports_ == nullptr) return drawn;
  json now = *ports_;
  drawn.of = select_ports(now, wanted_);
  drawn.ports = now.at("ports").size();
  const ports_picture picture =
      picture_of_ports(now, is_old() ? nullptr : before_.get(), wish_, output);
  const table_text text = render_apart(picture.shown, output);
  drawn.titles = lines_of(text.titles, output.columns);
  drawn.rows = lines_of(text.rows + picture.notes + describe_selection(now, wanted_, drawn.of),
                        output.columns);
  if (!is_old()) return drawn;
  if (!output.colours) {
    drawn.titles.clear();
    drawn.rows.clear();
  }
  make_old(drawn.titles, output);
  make_old(drawn.rows, output);
  return drawn;
}

std::vector<std::string> watch_view::lines(const room &available) {
  style output = output_;
  output.columns = available.columns;
  sheet drawn = draw(output);
  std::vector<std::string> picture = lines_of(headline(output), output.columns);
  const std::vector<std::string> keys = lines_of(keys_line(), output.columns);
  const std::size_t around = picture.size() + keys.size() + status_lines;
  if (around + drawn.titles.size() + fewest_rows > available.rows) {
    drawn.rows.insert(drawn.rows.begin(), drawn.titles.begin(), drawn.titles.end());
    drawn.titles.clear();
  }
  append(picture, drawn.titles);
  const std::size_t taken = picture.size() + keys.size() + status_lines;
  append(picture, window_of(drawn.rows, available.rows > taken ? available.rows - taken : 1));
  while (picture.size() + keys.size() + status_lines < available.rows) picture.emplace_back();
  append(picture, {shortened(status_line(drawn), output.columns)});
  append(picture, keys);
  // What there is no room for goes from the top: how to end it stays in sight.
  if (picture.size() > available.rows) {
    picture.erase(picture.begin(), picture.end() - static_cast<long>(available.rows));
  }
  return picture;
}

// The rows in sight, no further down than the last one allows.
std::vector<std::string> watch_view::window_of(const std::vector<std::string> &rows,
                                               std::size_t height) {
  const auto all = static_cast<long>(rows.size());
  page_ = static_cast<long>(height);
  first_row_ = std::clamp(first_row_, 0L, std::max(0L, all - page_));
  last_row_ = std::min(first_row_ + page_, all);
  return {rows.begin() + first_row_, rows.begin() + last_row_};
}

}  // namespace lumctl
