#include "node/saved_settings.h"

#include <span>

#include "lum_linux/checkpoints.h"

namespace lumd {

saved_settings not_known(const std::string &reason) { return {false, {}, reason}; }

saved_settings read_saved(uint32_t rsip) {
  const lum_ctx *const context = lum_get_ctx();
  if (context == nullptr) return not_known("the library has not started");
  lum_chkpt_record record = {};
  const auto seen = lum_linux::checkpoints_look(context->chkpt_table, rsip,
                                                std::as_writable_bytes(std::span(&record, 1)));
  if (!seen.known) return not_known(seen.reason);
  return {true, seen.found ? std::optional(record) : std::nullopt, {}};
}

}  // namespace lumd
