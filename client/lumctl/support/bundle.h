// What a support bundle holds, and its archive.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace lumctl {

struct bundle_item {
  std::string name;  // its path in the bundle
  std::string content;
  bool is_there = false;
  std::string note;  // why it is not there, or what of it is not
  std::chrono::system_clock::time_point when;
};

class bundle {
 public:
  // Nothing in a bundle steers a terminal. What is longer than an item may be loses its beginning.
  void add(std::string_view name, std::string_view content, std::string note = {});
  void miss(std::string_view name, std::string why);

  const std::vector<bundle_item> &items() const { return items_; }
  std::size_t missing() const;
  // A line for each item, with when it was got or why not.
  std::string manifest(const std::string &head) const;

 private:
  std::vector<bundle_item> items_;
};

// The text with control characters but line ends and tabs spelled out, as "\x1b", and so are bytes
// that are no UTF-8.
std::string without_control_characters(std::string_view text);

// A description without private keys, and without the values of keys that are named like a
// password. Each line ends.
std::string without_secrets(std::string_view text);

// "2026-01-31T08:00:00Z"
std::string utc_text(std::chrono::system_clock::time_point moment);

// Writes the items as a tar archive, compressed by gzip, that its owner alone may read: into
// `file`.tmp, which takes the place of `file` once it is whole. Unless `replace`, a file that is
// there is left alone. Empty, or what went wrong.
std::string write_archive(const std::filesystem::path &file, bool replace,
                          const std::vector<bundle_item> &items);

}  // namespace lumctl
