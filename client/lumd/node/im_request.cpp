#include "node/im_request.h"

#include <fmt/format.h>

#include <algorithm>

#include "node/driver.h"

namespace lumd {
namespace {

using lum_linux::im_batch_report;
using lum_linux::im_batch_state;

std::string text_of(cerrno code) { return fmt::format("{} ({})", cerr_strerror(code), code); }

// The elements that failed, of all batches.
std::string failed_elements(const std::vector<im_batch_report> &batches) {
  std::string first;
  std::size_t more = 0;
  for (const im_batch_report &batch : batches) {
    for (const auto &failure : batch.failed) {
      if (!first.empty()) {
        ++more;
      } else {
        first = fmt::format("{}: {}", failure.name.empty() ? "a controller" : failure.name,
                            text_of(failure.code));
      }
    }
  }
  return more == 0 ? first : fmt::format("{}, and {} more", first, more);
}

}  // namespace

im_request::im_request(driver &node, const char *what)
    : account_(node.platform().im()), what_(what) {}

void im_request::sent(cerrno rc) {
  account_.end();
  rc_ = rc;
}

bool im_request::is_settled() const {
  const auto batches = account_.batches();
  return std::none_of(batches.begin(), batches.end(), [](const im_batch_report &one) {
    return one.state == im_batch_state::waiting || one.state == im_batch_state::completing;
  });
}

bool im_request::is_pending() const {
  const auto batches = account_.batches();
  const auto is_no_failure = [](const im_batch_report &one) {
    return one.code == 0 && !one.empty && one.state != im_batch_state::dropped &&
           one.state != im_batch_state::refused;
  };
  return CERR_IS_OK(rc_) && !is_settled() &&
         std::all_of(batches.begin(), batches.end(), is_no_failure);
}

bool im_request::is_good() const {
  const auto batches = account_.batches();
  return CERR_IS_OK(rc_) &&
         std::all_of(batches.begin(), batches.end(), [](const im_batch_report &one) {
           return one.state == im_batch_state::answered && one.code == 0 && !one.empty;
         });
}

// Of several causes the first that applies is told.
std::string im_request::problem(std::chrono::milliseconds wait) const {
  const auto batches = account_.batches();
  const auto find = [&](auto applies) {
    const auto found = std::find_if(batches.begin(), batches.end(), applies);
    return found == batches.end() ? nullptr : &*found;
  };
  const auto is = [](im_batch_state state) {
    return [state](const im_batch_report &one) { return one.state == state; };
  };
  if (const auto *refused = find(is(im_batch_state::refused))) {
    return fmt::format("the interface manager refused the {}: {}", what_, text_of(refused->code));
  }
  if (!CERR_IS_OK(rc_)) return fmt::format("the {} was refused: {}", what_, text_of(rc_));
  if (const auto failed = failed_elements(batches); !failed.empty()) {
    return fmt::format("the interface manager failed the {} of {}", what_, failed);
  }
  if (const auto *failed = find([](const auto &one) { return one.code != 0; })) {
    return fmt::format("the interface manager failed the {}: {}", what_, text_of(failed->code));
  }
  if (find([](const auto &one) { return one.empty; })) {
    return fmt::format("the interface manager answered the {} for no controller", what_);
  }
  if (find(is(im_batch_state::dropped))) {
    return fmt::format("the interface manager dropped the {}: it will not be answered", what_);
  }
  if (find(is(im_batch_state::completing))) {
    return fmt::format(
        "the {} is not through: the interface manager has answered, and the library is still busy "
        "with it, at the store or at a port",
        what_);
  }
  if (find(is(im_batch_state::waiting))) {
    return wait.count() > 0
               ? fmt::format("the interface manager has not answered the {} within {:g} s", what_,
                             std::chrono::duration<double>(wait).count())
               : fmt::format("the interface manager has not answered the {} yet", what_);
  }
  return {};
}

}  // namespace lumd
