// Keys as a terminal sends them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lumctl {

enum class key_kind {
  character,  // its text
  up,
  down,
  page_up,
  page_down,
  home,
  end,
  enter,
  escape,
  backspace,
  other,  // one that nothing is known of
};

struct key {
  key_kind kind = key_kind::other;
  std::string text = {};
};

// Takes bytes in and keeps those of a key that has not come whole.
class key_reader {
 public:
  std::vector<key> take(std::string_view bytes);

  // Whether a key may still be under way; when nothing follows it soon, what has come is all of it.
  bool is_waiting() const { return !pending_.empty(); }
  std::vector<key> take_rest();

 private:
  bool take_one(std::vector<key> &keys);

  std::string pending_;
};

}  // namespace lumctl
