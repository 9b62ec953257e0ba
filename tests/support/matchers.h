// What tests expect of trace lines: EXPECT_THAT(traces(), Contains(info(118, "Write page ...\n"))).
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <string_view>

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

  bool MatchAndExplain(const trace_line &line, std::ostream *) const {
    return line.channel == channel_ && line.tag == tag_ && line.text == text_ &&
           (point_ == 0 || line.point == point_) && (file_.empty() || line.file == file_);
  }
  void DescribeTo(std::ostream *out) const {
    *out << "is " << channel_ << " point " << point_ << " [" << file_ << "]" << tag_ << ":"
         << text_;
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

// Any line on the error channel.
MATCHER(an_error, "is on the error channel") { return arg.channel == "lum_error"; }

// A line that begins so.
MATCHER_P(starting, prefix, "") { return arg.text.rfind(prefix, 0) == 0; }

}  // namespace support
