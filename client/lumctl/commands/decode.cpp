// Dumps of modules' memories, which need no driver.
#include <fcntl.h>
#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "base/descriptor.h"
#include "base/output.h"
#include "command_line/status.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "decode/decoded.h"
#include "decode/memory_dump.h"
#include "printing/dump_text.h"
#include "terminal/printable.h"
#include "words/schema.h"

namespace lumctl {
namespace {

constexpr const char *standard_input = "-";

// One byte more than a dump may have shows that it has too many. Empty, with `why`, when it cannot
// be read.
std::string read_all(int source, std::string &why) {
  std::string content;
  std::array<char, 65536> buffer;
  while (content.size() <= longest_dump) {
    const ssize_t count = ::read(source, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) why = std::strerror(errno);
    if (count <= 0) break;
    content.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return content;
}

std::string read_source(const std::string &source, std::string &why) {
  if (source == standard_input) return read_all(STDIN_FILENO, why);
  const lum_client::descriptor file(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() >= 0) return read_all(file.get(), why);
  why = std::strerror(errno);
  return {};
}

const char *name_of(dump_layout layout) {
  switch (layout) {
    case dump_layout::eeprom:
      return "eeprom";
    case dump_layout::text:
      return "text";
    case dump_layout::document:
      return "json";
  }
  return "unknown";
}

int decode_file(const session &now, const given &words) {
  const std::string source = words.text("file");
  const std::string shown_name = source == standard_input ? "standard input" : source;
  std::string why;
  const std::string content = read_source(source, why);
  if (!why.empty()) {
    return fail(exit_refused, fmt::format("{} cannot be read: {}", printable(shown_name), why));
  }
  const dump_reading read = read_dump(content);
  if (!read.dump) {
    return fail(exit_refused,
                fmt::format("{} is no memory dump: {}", printable(shown_name), read.wrong));
  }
  json shown = {
      {"schema", lum_words::api_schema}, {"source", shown_name}, {"layout", name_of(read.layout)}};
  shown.update(decode(*read.dump));
  lum_client::print(wants_json(words)
                        ? shown.dump(2, ' ', false, json::error_handler_t::replace) + "\n"
                        : describe_dump(shown, now.output));
  return exit_done;
}

}  // namespace

command decode_command() {
  return {.name = "decode",
          .help = "What a dump of a module's memory says: identity, readings, flags, checksums",
          .arguments = {{"file",
                         "An eeprom file, or what show module --page or lum-module-image --dump "
                         "printed; - for standard input",
                         value{}}},
          .options = {own_json_option()},
          .action = decode_file,
          .asks = false};
}

}  // namespace lumctl
