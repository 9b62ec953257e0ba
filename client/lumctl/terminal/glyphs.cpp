#include "terminal/glyphs.h"

#include <clocale>
#include <cwchar>

#include <algorithm>

namespace lumctl {
namespace {

constexpr const char *ellipsis = "\xe2\x80\xa6";
constexpr char escape = '\x1b';

// The thread knows UTF-8 for as long as it lives, whatever the user's locale: the driver's names
// are UTF-8 everywhere.
class knowing_utf8 {
 public:
  knowing_utf8() : before_(::uselocale(utf8())) {}
  ~knowing_utf8() { ::uselocale(before_); }
  knowing_utf8(const knowing_utf8 &) = delete;
  knowing_utf8 &operator=(const knowing_utf8 &) = delete;

 private:
  static locale_t utf8() {
    static const locale_t known = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return known;  // null leaves the locale as it is
  }

  locale_t before_;
};

// The length of a change of colours at the start of the text, or 0.
std::size_t length_of_escape(std::string_view text) {
  if (text.size() < 2 || text[0] != escape || text[1] != '[') return 0;
  const std::size_t end = text.find('m');
  return end == std::string_view::npos ? 0 : end + 1;
}

// What is no character takes the place of one.
glyph first_of(std::string_view text) {
  if (const std::size_t length = length_of_escape(text); length > 0) {
    return {text.substr(0, length), 0};
  }
  std::mbstate_t state = {};
  wchar_t wide = 0;
  const std::size_t length = std::mbrtowc(&wide, text.data(), text.size(), &state);
  if (length == 0 || length > text.size()) return {text.substr(0, 1), 1};
  const int width = ::wcwidth(wide);
  return {text.substr(0, length), width < 0 ? 1U : static_cast<std::size_t>(width)};
}

std::size_t width_of(const std::vector<glyph> &glyphs) {
  std::size_t width = 0;
  for (const glyph &one : glyphs) width += one.width;
  return width;
}

// Builds lines of a bounded width.
class line_breaker {
 public:
  line_breaker(std::size_t width, std::size_t hang) : width_(width), hang_(hang) {}

  // The blanks before the word stand only where the word stands in the same line.
  void add_word(std::size_t blanks, const std::vector<glyph> &word) {
    const std::size_t width = width_of(word);
    if (used_ > start_ && used_ + blanks + width > width_) {
      begin_line();
    } else {
      text_.append(blanks, ' ');
      used_ += blanks;
    }
    for (const glyph &one : word) {
      if (used_ + one.width > width_ && used_ > start_) begin_line();
      text_ += one.bytes;
      used_ += one.width;
    }
  }

  const std::string &text() const { return text_; }

 private:
  void begin_line() {
    text_ += "\n" + std::string(hang_, ' ');
    used_ = start_ = hang_;
  }

  std::size_t width_;
  std::size_t hang_;
  std::size_t used_ = 0;
  std::size_t start_ = 0;  // columns of this line that hold no text
  std::string text_;
};

}  // namespace

std::vector<glyph> glyphs_of(std::string_view text) {
  const knowing_utf8 scope;
  std::vector<glyph> glyphs;
  while (!text.empty()) {
    glyphs.push_back(first_of(text));
    text.remove_prefix(glyphs.back().bytes.size());
  }
  return glyphs;
}

std::size_t display_width(std::string_view text) { return width_of(glyphs_of(text)); }

std::string shortened(const std::string &text, std::size_t width) {
  const std::vector<glyph> glyphs = glyphs_of(text);
  if (width_of(glyphs) <= width) return text;
  if (width == 0) return {};
  const std::size_t room = width - 1;
  std::string head;
  std::size_t used = 0;
  auto from = glyphs.begin();
  for (; from != glyphs.end() && used + from->width <= room / 2; ++from) {
    head += from->bytes;
    used += from->width;
  }
  auto to = glyphs.end();
  while (to != from && used + std::prev(to)->width <= room) used += (--to)->width;
  // A sign that stands upon another one would stand upon the ellipsis.
  while (to != glyphs.end() && to->width == 0) ++to;
  std::string tail;
  for (; to != glyphs.end(); ++to) tail += to->bytes;
  return head + ellipsis + tail;
}

std::string wrapped(std::string_view text, std::size_t width, std::size_t hang) {
  if (width == 0 || display_width(text) <= width) return std::string(text);
  line_breaker lines(width, std::min(hang, width / 2));
  while (!text.empty()) {
    const std::size_t blanks = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(blanks);
    const std::size_t end = std::min(text.find(' '), text.size());
    if (end > 0) lines.add_word(blanks, glyphs_of(text.substr(0, end)));
    text.remove_prefix(end);
  }
  return lines.text();
}

std::string wrapped_lines(std::string_view text, std::size_t width, std::size_t hang) {
  std::string lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1);
    const bool ends = text[end] == '\n';
    lines += wrapped(text.substr(0, ends ? end : end + 1), width, hang) + (ends ? "\n" : "");
    text.remove_prefix(end + 1);
  }
  return lines;
}

std::string uncoloured(std::string_view text) {
  std::string plain;
  for (const glyph &one : glyphs_of(text)) {
    if (one.bytes[0] != escape || one.bytes.size() == 1) plain += one.bytes;
  }
  return plain;
}

}  // namespace lumctl
