// What tests expect of trace lines: EXPECT_THAT(traces(), Contains(info(118, "Write page ...\n"))).
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "record.h"

namespace support {

// A whole line: channel, text, and, where given, the point and the source area.
class line_matcher {
 public:
  using is_gtest_matcher = void;
  line_matcher(std::string channel, std::string tag, uint32_t point, std::string text)
      : channel_(std::move(channel)), tag_(std::move(tag)), point_(point), text_(std::move(text)) {}

  line_matcher of(std::string file) const {
    line_matcher copy = *this;
    copy.file_ = std::move(file);
    return copy;
  }
  // Behind the area, thread and tag that every line starts with: a letter for each argument.
  line_matcher signed_as(std::string letters) const {
    line_matcher copy = *this;
    copy.signature_ = "sds" + std::move(letters);
    return copy;
  }

  bool MatchAndExplain(const trace_line &line, std::ostream *) const {
    return line.channel == channel_ && line.tag == tag_ && line.text == text_ &&
           (point_ == 0 || line.point == point_) && (file_.empty() || line.file == file_) &&
           (signature_.empty() || line.signature == signature_);
  }
  void DescribeTo(std::ostream *out) const {
    *out << "is " << channel_ << " point " << point_ << " [" << file_ << "]" << tag_ << ":"
         << text_;
    if (!signature_.empty()) *out << " (" << signature_ << ")";
  }
  void DescribeNegationTo(std::ostream *out) const {
    *out << "not: ";
    DescribeTo(out);
  }

 private:
  std::string channel_;
  std::string tag_;
  uint32_t point_;  // 0: any
  std::string text_;
  std::string file_;
  std::string signature_;
};

inline line_matcher info(uint32_t point, std::string text) {
  return {"lum_info", "LUM_INFO", point, std::move(text)};
}
inline line_matcher info(std::string text) { return info(0, std::move(text)); }
inline line_matcher error(uint32_t point, std::string text) {
  return {"lum_error", "LUM_ERR", point, std::move(text)};
}
inline line_matcher error(std::string text) { return error(0, std::move(text)); }
inline line_matcher debug(uint32_t point, std::string text) {
  return {"lum_debug", "LUM_DEBUG", point, std::move(text)};
}
inline line_matcher debug(std::string text) { return debug(0, std::move(text)); }

// Lines that come in this order, whatever comes between them.
class lines_in_order {
 public:
  using is_gtest_matcher = void;
  lines_in_order(std::initializer_list<line_matcher> expected) : expected_(expected) {}

  bool MatchAndExplain(const std::vector<trace_line> &lines, std::ostream *why) const {
    auto next = expected_.begin();
    for (const trace_line &line : lines) {
      if (next != expected_.end() && next->MatchAndExplain(line, nullptr)) ++next;
    }
    if (next == expected_.end()) return true;
    if (why != nullptr) {
      *why << "which miss the line that ";
      next->DescribeTo(why);
    }
    return false;
  }
  void DescribeTo(std::ostream *out) const {
    *out << "have " << expected_.size() << " lines in order";
  }
  void DescribeNegationTo(std::ostream *out) const { *out << "lack a line of the order"; }

 private:
  std::vector<line_matcher> expected_;
};

// Calls or story texts that come in this order, whatever comes between them.
class texts_in_order {
 public:
  using is_gtest_matcher = void;
  texts_in_order(std::initializer_list<std::string> expected) : expected_(expected) {}

  bool MatchAndExplain(const std::vector<std::string> &texts, std::ostream *why) const {
    auto next = expected_.begin();
    for (const std::string &text : texts) {
      if (next != expected_.end() && text == *next) ++next;
    }
    if (next == expected_.end()) return true;
    if (why != nullptr) *why << "which miss \"" << *next << '"';
    return false;
  }
  void DescribeTo(std::ostream *out) const {
    *out << "have " << expected_.size() << " texts in order";
  }
  void DescribeNegationTo(std::ostream *out) const { *out << "lack a text of the order"; }

 private:
  std::vector<std::string> expected_;
};

// Any line on the error channel.
MATCHER(an_error, "is on the error channel") { return arg.channel == "lum_error"; }

// A line that begins so.
MATCHER_P(starting, prefix, "") { return arg.text.rfind(prefix, 0) == 0; }

}  // namespace support
