// Which platform calls fail, and how.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cerr.h"
#include "spin.h"

namespace support {

// A rule counts the calls that are made from the moment it is set. The call names are those of the
// record; `object` narrows a rule down to one mutex or one module. The code is what the call
// returns; calls that return something else fail in their own way (null, no pulse, tree insert 0),
// for which any code will do.
class script_book {
 public:
  // The nth call (1 is the next one) fails.
  void fail(std::string_view call, unsigned nth, cerrno code, const void *object = nullptr);
  // As above, with errno set.
  void fail_with_errno(std::string_view call, unsigned nth, cerrno code, int error);
  // The first `count` calls fail.
  void fail_first(std::string_view call, unsigned count, cerrno code, const void *object = nullptr);
  // Every call fails.
  void fail_always(std::string_view call, cerrno code, const void *object = nullptr);
  // The nth call of any name fails, once or with all after it. Two kinds never do: a tree refuses
  // to take out only what it does not have (wavl.h), and a mutex that its holder releases is free.
  enum class how_long { once, from_then_on };
  void fail_any(unsigned nth, cerrno code, how_long lasts = how_long::once);
  unsigned calls_of_any() const { return seen_of_any_; }
  // Which were they, the first one first.
  const std::vector<std::string> &failed_of_any() const { return failed_of_any_; }
  // Nothing fails any more.
  void forget();

  // For the platform: counts one call; a code when it is to fail.
  std::optional<cerrno> verdict(std::string_view call, const void *object = nullptr);
  // The code, or 0 for a call that is to succeed.
  cerrno answer(std::string_view call, const void *object = nullptr) {
    return verdict(call, object).value_or(0);
  }

 private:
  struct rule {
    std::string call;
    unsigned nth;  // 0: every call
    cerrno code;
    const void *object;
    int error;
    unsigned seen = 0;
  };
  void add(rule added);

  spin lock_;
  std::vector<rule> rules_;
  unsigned nth_of_any_ = 0;  // 0: none
  unsigned seen_of_any_ = 0;
  cerrno code_of_any_ = 0;
  how_long any_lasts_ = how_long::once;
  std::vector<std::string> failed_of_any_;
};

extern script_book &script;

// As script.verdict, for calls that are made before main has begun and after it has ended.
std::optional<cerrno> planned(std::string_view call, const void *object = nullptr);

}  // namespace support
