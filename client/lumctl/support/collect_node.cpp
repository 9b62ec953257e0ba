#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <set>

#include "base/descriptor.h"
#include "lum.h"
#include "lum_linux/node_description.h"
#include "support/collect.h"
#include "trace/trace_files.h"
#include "trace/trace_source.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;
using std::chrono::system_clock;

constexpr std::size_t longest_description = std::size_t{1024} * 1024;
constexpr std::size_t longest_trace = std::size_t{1024} * 1024;

// The last bytes of an ordinary file; anything else could hold up who reads it. Empty with `why`
// when it cannot be read.
std::string end_of_file(const fs::path &file, std::size_t longest, std::string &why) {
  const lum_client::descriptor open(
      ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat found = {};
  if (open.get() < 0 || ::fstat(open.get(), &found) != 0) {
    why = std::strerror(errno);
    return {};
  }
  if (!S_ISREG(found.st_mode)) {
    why = "no ordinary file";
    return {};
  }
  const auto size = static_cast<std::size_t>(found.st_size);
  std::string content(std::min(size, longest), '\0');
  std::size_t done = 0;
  while (done < content.size()) {
    const auto at = static_cast<off_t>(size - content.size() + done);
    const ssize_t count = ::pread(open.get(), content.data() + done, content.size() - done, at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) why = std::strerror(errno);
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  content.resize(done);
  return content;
}

// What the driver reads, also where it is not right. Where folders are is taken from it as far as
// the driver has not said so.
void collect_description(const support_wish &wanted, driver_findings &found, bundle &into) {
  if (!wanted.config.empty()) found.description = wanted.config;
  if (found.description.empty()) found.description = usual_description;
  const std::string name = "description.toml";
  std::string why;
  const std::string text = end_of_file(found.description, longest_description, why);
  if (!why.empty()) {
    into.miss(name, fmt::format("{}: {}", found.description.string(), why));
    return;
  }
  const auto read = lum_linux::parse_node_description(text, found.description);
  std::string problems;
  for (const auto &problem : read.problems) problems += "; " + to_string(problem);
  into.add(name, without_secrets(text), found.description.string() + problems);
  if (!read.node) return;
  if (found.state_folder.empty()) found.state_folder = read.node->state_directory;
  if (found.trace_folder.empty()) found.trace_folder = read.node->trace_directory;
}

// The lines, but for those that the text has. Both are in the order of their times, which they
// begin with.
std::string missing_in(std::string_view text, const std::vector<std::string> &lines) {
  if (lines.empty()) return {};
  std::set<std::string_view> there;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    if (line >= lines.front()) there.insert(line);
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  std::string missing;
  for (const std::string &line : lines) {
    if (!there.contains(line)) missing += line + "\n";
  }
  return missing;
}

// The end of a channel, out of both its files, from the beginning of a line on, and of its ring
// what they do not have.
void collect_channel(const fs::path &folder, const std::string &channel, bundle &into) {
  const std::vector<std::string> latest = trace_channel(folder, channel).latest();
  std::string why;
  std::string text = end_of_file(folder / (channel + ".log"), longest_trace, why);
  std::string older_why;
  if (text.size() < longest_trace) {
    text.insert(0,
                end_of_file(folder / (channel + ".1.log"), longest_trace - text.size(), older_why));
  }
  const std::string missing = missing_in(text, latest);
  if (!missing.empty() && !text.empty() && text.back() != '\n') text += '\n';
  text += missing;
  const std::string name = "traces/" + channel + ".log";
  if (!why.empty() && text.empty()) {
    into.miss(name, fmt::format("{}: {}", (folder / (channel + ".log")).string(), why));
    return;
  }
  std::string_view shown = text;
  if (shown.size() >= longest_trace) {
    shown.remove_prefix(shown.size() - longest_trace);
    shown.remove_prefix(std::min(shown.find('\n') + 1, shown.size()));
  }
  into.add(name, shown, why);
}

void collect_traces(const fs::path &folder, bundle &into) {
  if (folder.empty()) {
    into.miss("traces", "it is not known where they are; --config says it");
    return;
  }
  try {
    const std::vector<std::string> channels = channels_in(folder);
    for (const std::string &channel : channels) collect_channel(folder, channel, into);
    if (channels.empty()) into.miss("traces", folder.string() + " has none");
  } catch (const fs::filesystem_error &failed) {
    into.miss("traces", fmt::format("{}: {}", folder.string(), failed.code().message()));
  }
}

std::string line_of(const fs::directory_entry &entry) {
  struct stat found = {};
  if (::lstat(entry.path().c_str(), &found) != 0) {
    return fmt::format("? {}: {}\n", entry.path().filename().string(), std::strerror(errno));
  }
  return fmt::format("{:06o} {}:{} {:>12} {} {}\n", found.st_mode, found.st_uid, found.st_gid,
                     found.st_size, utc_text(system_clock::from_time_t(found.st_mtime)),
                     entry.path().filename().string());
}

// Mode, owner, size and time of each file, and nothing of what is in it.
std::string listing_of(const fs::path &folder) {
  std::set<std::string> lines;
  std::error_code code;
  fs::directory_iterator at(folder, code);
  for (; !code && at != fs::directory_iterator(); at.increment(code)) lines.insert(line_of(*at));
  std::string text = folder.string() + ":\n";
  for (const std::string &line : lines) text += line;
  return code ? text + code.message() + "\n" : text;
}

void collect_listing(const driver_findings &found, bundle &into) {
  std::string text;
  for (const fs::path &folder : {found.state_folder, found.trace_folder}) {
    if (!folder.empty()) text += listing_of(folder) + "\n";
  }
  if (text.empty()) {
    into.miss("files.txt", "it is not known where the state and the traces are");
  } else {
    into.add("files.txt", text);
  }
}

void collect_versions(const driver_findings &found, bundle &into) {
  utsname system = {};
  const bool is_named = ::uname(&system) == 0;
  std::string why;
  into.add("versions.txt",
           fmt::format("lumctl {}\nlumd {}\nheaders of liblum {}.{}.{}\nsystem {} {} {} {}\n{}",
                       LUMCTL_VERSION, found.version.empty() ? "not known" : found.version,
                       LUM_VERSION_MAJOR, LUM_VERSION_MINOR, LUM_VERSION_PATCH,
                       is_named ? system.sysname : "-", is_named ? system.release : "-",
                       is_named ? system.version : "-", is_named ? system.machine : "-",
                       end_of_file("/etc/os-release", 16384, why)));
}

}  // namespace

void collect_from_node(const support_wish &wanted, driver_findings found, bundle &into) {
  collect_description(wanted, found, into);
  collect_traces(found.trace_folder, into);
  collect_listing(found, into);
  collect_versions(found, into);
}

}  // namespace lumctl
