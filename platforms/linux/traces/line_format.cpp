#include "traces/line_format.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace lum_linux {
namespace {

using namespace rings;

constexpr size_t longest_conversion = 24;
constexpr std::string_view end_mark = "...";

// One conversion of a format, from its % on.
struct conversion {
  std::string_view text;
  char letter = 0;  // of its argument; 0: a percent sign; '?': not to be understood
  uint16_t precision = longest_text;
};

bool is_digit(char c) { return c >= '0' && c <= '9'; }

void skip_digits(std::string_view text, size_t &at) {
  while (at < text.size() && is_digit(text[at])) ++at;
}

// How long an integer is said to be.
bool take_length(std::string_view text, size_t &at) {
  bool is_long = false;
  while (at < text.size() && std::strchr("hlzjt", text[at]) != nullptr) {
    is_long = is_long || text[at] != 'h';
    ++at;
  }
  return is_long;
}

uint16_t take_precision(std::string_view text, size_t &at) {
  if (at == text.size() || text[at] != '.') return longest_text;
  size_t number = 0;
  for (++at; at < text.size() && is_digit(text[at]); ++at) {
    number = std::min(number * 10 + static_cast<size_t>(text[at] - '0'), longest_text);
  }
  return static_cast<uint16_t>(number);
}

char letter_of(char what, bool is_long) {
  if (what == 's') return is_long ? '?' : 's';
  if (what == 'p') return is_long ? '?' : 'D';
  if (what == 'c') return is_long ? '?' : 'd';
  if (what != 0 && std::strchr("diuxXo", what) != nullptr) return is_long ? 'D' : 'd';
  return '?';
}

conversion conversion_at(std::string_view text) {
  conversion found;
  size_t at = 1;
  if (text.size() > 1 && text[1] == '%') {
    found.text = text.substr(0, 2);
    return found;
  }
  while (at < text.size() && text[at] != 0 && std::strchr("-+ #0", text[at]) != nullptr) ++at;
  skip_digits(text, at);
  found.precision = take_precision(text, at);
  const bool is_long = take_length(text, at);
  found.letter = at < text.size() ? letter_of(text[at], is_long) : '?';
  found.text = text.substr(0, std::min(at + 1, text.size()));
  if (found.text.size() >= longest_conversion) found.letter = '?';
  return found;
}

// Words behind a record's head, read without trust.
class argument_reader {
 public:
  explicit argument_reader(std::span<const uint64_t> words) : words_(words) {}

  bool number(uint64_t &value) {
    if (words_.empty()) return false;
    value = words_.front();
    words_ = words_.subspan(1);
    return true;
  }

  bool text(std::array<char, longest_text + 1> &into, bool &is_null) {
    uint64_t first = 0;
    if (words_.empty()) return false;
    first = words_.front();
    const size_t length = first & null_text;
    is_null = length == null_text;
    into[0] = 0;
    if (is_null) {
      words_ = words_.subspan(1);
      return true;
    }
    const size_t count = (length_bytes + length + word_bytes - 1) / word_bytes;
    if (length > longest_text || count > words_.size()) return false;
    const auto *const bytes = reinterpret_cast<const char *>(words_.data());
    std::memcpy(into.data(), bytes + length_bytes, length);
    into[length] = 0;
    words_ = words_.subspan(count);
    return true;
  }

 private:
  std::span<const uint64_t> words_;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// The conversion was understood, so that it and its argument are of one kind.
int convert(std::span<char> into, const conversion &how, argument_reader &arguments) {
  std::array<char, longest_conversion> format{};
  std::copy(how.text.begin(), how.text.end(), format.begin());
  if (how.letter == 's') {
    std::array<char, longest_text + 1> text;
    bool is_null = false;
    if (!arguments.text(text, is_null)) return -1;
    return std::snprintf(into.data(), into.size(), format.data(), is_null ? nullptr : text.data());
  }
  uint64_t value = 0;
  if (!arguments.number(value)) return -1;
  if (how.letter == 'D') return std::snprintf(into.data(), into.size(), format.data(), value);
  return std::snprintf(into.data(), into.size(), format.data(), static_cast<uint32_t>(value));
}
#pragma GCC diagnostic pop

void cut_to_line(std::string &text, bool &cut) {
  cut = text.size() >= longest_text;
  if (cut) text.resize(longest_text - 1);
}

bool append_conversion(const conversion &how, argument_reader &arguments, std::string &text) {
  std::array<char, longest_text> made;
  const int wanted = convert(made, how, arguments);
  if (wanted < 0) return false;
  const auto length = static_cast<size_t>(wanted);
  if (length < made.size()) {
    text.append(made.data(), length);
  } else {  // longer than a line, which will be cut
    text.append(made.data(), made.size() - 1);
    text += ' ';
  }
  return true;
}

}  // namespace

bool understand(std::string_view format, std::string_view signature, line_arguments &understood) {
  size_t count = 0;
  for (size_t at = 0; (at = format.find('%', at)) != std::string_view::npos;) {
    const conversion found = conversion_at(format.substr(at));
    at += found.text.size();
    if (found.letter == 0) continue;
    if (count == most_arguments || count >= signature.size()) return false;
    if (found.letter != signature[count]) return false;
    understood.letters[count] = found.letter;
    understood.precision[count++] = found.precision;
  }
  understood.count = count;
  return count == signature.size();
}

bool render(std::string_view format, std::string_view signature, std::span<const uint64_t> words,
            std::string &text, bool &cut) {
  line_arguments known;
  if (!understand(format, signature, known)) return false;
  argument_reader arguments(words);
  text.clear();
  while (!format.empty() && text.size() < longest_text) {
    const size_t plain = std::min(format.find('%'), format.size());
    text.append(format.substr(0, plain));
    format.remove_prefix(plain);
    if (format.empty()) break;
    const conversion found = conversion_at(format);
    format.remove_prefix(found.text.size());
    if (found.letter == 0) {
      text += '%';
    } else if (!append_conversion(found, arguments, text)) {
      return false;
    }
  }
  cut_to_line(text, cut);
  return true;
}

bool render_text(std::span<const uint64_t> words, std::string &text, bool &cut) {
  argument_reader arguments(words);
  std::array<char, longest_text + 1> made;
  bool is_null = false;
  if (!arguments.text(made, is_null)) return false;
  text = made.data();
  cut_to_line(text, cut);
  return true;
}

std::string printable_text(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string shown;
  for (const char c : text) {
    if (c >= 0x20 && c < 0x7f) {
      shown += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    shown.append("\\x").append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
  }
  return shown;
}

std::string printable_line(uint32_t point, std::string_view text, bool cut) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  std::string line = "#" + std::to_string(point) + " " + printable_text(text);
  if (cut) line += end_mark;
  return line;
}

}  // namespace lum_linux
