// Trace channels: every line is recorded, and held against the convention of trace calls.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue.h"
#include "ctrace.h"
#include "record.h"
#include "script.h"
#include "tern.h"
#include "trace_service.h"

namespace support {

std::vector<std::string> &channel_digests = *new std::vector<std::string>;

}  // namespace support

using namespace support;

namespace {

constexpr std::string_view prefix = "[%s][tid:%d]%s:";

struct known_channel {
  const char *name;
  ctrace_handle handle;
};
constexpr known_channel known_channels[] = {
    {"lum_error", error_channel},
    {"lum_info", info_channel},
    {"lum_debug", debug_channel},
    {"lum_periodic", periodic_channel},
};

std::string name_of(ctrace_handle handle) {
  for (const known_channel &channel : known_channels) {
    if (channel.handle == handle) return channel.name;
  }
  return "closed";
}

std::string expected_tag(const std::string &channel) {
  if (channel == "lum_error") return "LUM_ERR";
  if (channel == "lum_info") return "LUM_INFO";
  if (channel == "lum_debug") return "LUM_DEBUG";
  return "";
}

// The signature letters that a format calls for.
std::string letters_of(std::string_view format) {
  std::string letters;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') continue;
    i = format.find_first_not_of("-+ #0123456789.", i + 1);
    if (i == std::string_view::npos) break;
    bool wide = false;
    while (i < format.size() && (format[i] == 'l' || format[i] == 'z')) {
      wide = true;
      ++i;
    }
    if (i == format.size()) break;
    if (format[i] == '%') continue;
    if (format[i] == 's') {
      letters += 's';
    } else {
      letters += wide || format[i] == 'p' ? 'D' : 'd';
    }
  }
  return letters;
}

void check_convention(const trace_line &line, uint32_t one) {
  EXPECT_EQ(line.format.rfind(prefix, 0), 0u) << line.format;
  EXPECT_EQ(line.signature, letters_of(line.format)) << line.format;
  EXPECT_EQ(line.nargs, line.signature.size()) << line.format;
  EXPECT_EQ(one, 1u) << line.format;
  ASSERT_GE(line.point, 1u) << line.format;
  ASSERT_LE(line.point, trace_catalogue().size()) << line.format;
  const catalogue_entry &entry = trace_catalogue()[line.point - 1];
  EXPECT_EQ(as_written(line.format.substr(prefix.size())), entry.message) << line.point;
  EXPECT_EQ(line.file, entry.area) << line.format;
  EXPECT_EQ(line.tag, expected_tag(entry.channel)) << line.format;
  if (line.channel != "closed") {
    EXPECT_EQ(line.channel, entry.channel) << line.format;
  }
}

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(length < 0 ? 0 : static_cast<std::size_t>(length) + 1, '\0');
  if (!text.empty()) {
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
  }
  return text;
}

}  // namespace

cerrno ctrace_open_internal(ctrace_handle *handle, const char *name, uint32_t size, uint32_t points,
                            const char *directory_key, const char *digest, uint32_t flags) {
  note("ctrace_open_internal", name, hex{size}, points, directory_key,
       digest == nullptr ? 0 : std::strlen(digest), flags);
  channel_digests.push_back(digest == nullptr ? "" : digest);
  if (const auto code = script.verdict("ctrace_open_internal")) return *code;
  for (const known_channel &channel : known_channels) {
    if (std::strcmp(channel.name, name) == 0) *handle = channel.handle;
  }
  return 0;
}

cerrno ctrace_enable_configuration(ctrace_handle handle, void *local_event_manager) {
  record_call("ctrace_enable_configuration", {name_of(handle), shown(local_event_manager)});
  return script.answer("ctrace_enable_configuration");
}

void ctrace_set_process_name(const char *name) { note("ctrace_set_process_name", name); }

cerrno ctrace_internal(ctrace_handle handle, uint32_t point, uint32_t nargs, uint32_t one,
                       const char *signature, const char *format, ...) {
  trace_line line;
  line.channel = name_of(handle);
  line.point = point;
  line.nargs = nargs;
  line.signature = signature;
  line.format = format;
  va_list arguments;
  va_start(arguments, format);
  line.file = va_arg(arguments, const char *);
  EXPECT_EQ(va_arg(arguments, int), tern_gettid()) << format;
  line.tag = va_arg(arguments, const char *);
  line.text = formatted(format + prefix.size(), arguments);
  va_end(arguments);
  check_convention(line, one);
  record_trace(line);
  return script.answer("ctrace_internal");
}

void ctrace_dump(ctrace_handle handle) { record_call("ctrace_dump", {name_of(handle)}); }

void ctrace_close(ctrace_handle handle) { record_call("ctrace_close", {name_of(handle)}); }
