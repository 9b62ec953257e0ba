// The members of a request's body, read strictly: each is of its kind and in its range, and there
// is no other.
#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "views/json.h"

namespace lumd {

// Reads on after something wrong, and then gives zeros; wrong() is asked at the end.
class request_body {
 public:
  // Null stands for an object without members.
  explicit request_body(const json &body);

  uint32_t number(std::string_view name, uint32_t least, uint32_t most);
  std::optional<uint32_t> optional_number(std::string_view name, uint32_t least, uint32_t most);
  bool boolean(std::string_view name);
  bool optional_boolean(std::string_view name, bool otherwise);
  std::string text(std::string_view name);
  std::optional<std::string> optional_text(std::string_view name);
  // How long the reply may wait: the member "wait_ms", at most 20 s and 5 s unless given.
  std::chrono::milliseconds wait();
  // A member that whoever asks looks at alone; null when it is not there.
  const json *member(std::string_view name);

  // Notes what is wrong with a member; the first note stays.
  void complain(std::string what);
  // The same of a text that is none of those that are known.
  template <typename Words>
  void complain_of_word(std::string_view name, std::string_view given, const Words &known) {
    complain(unknown_word(name, given, {std::begin(known), std::end(known)}));
  }

  // What is wrong, a member that nobody has asked for included; empty when nothing is.
  std::string wrong() const;

 private:
  static std::string unknown_word(std::string_view name, std::string_view given,
                                  const std::vector<std::string_view> &known);
  const json *required(std::string_view name, std::string_view expected);
  uint32_t checked_number(const json &value, std::string_view name, uint32_t least, uint32_t most);

  json body_;
  std::set<std::string, std::less<>> known_;
  std::string wrong_;
};

}  // namespace lumd
