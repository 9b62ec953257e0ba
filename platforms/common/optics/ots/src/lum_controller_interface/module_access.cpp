// Every transfer to and from a module's memory.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/memory.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

constexpr int max_attempts = 5;
constexpr useconds_t retry_pause = 30000;  // microseconds
constexpr std::size_t stack_bytes = 256;   // longer reads go through the heap

// The place in the modules' memory that a transfer means.
struct place {
  std::uint32_t slot;
  std::uint32_t instance;
  std::uint32_t port;
  std::uint32_t page;
  std::uint32_t offset;
};

cerrno write_byte(const lum_platform_cbs &callbacks, const place &at, const std::uint8_t *buffer);
cerrno read_bytes(const lum_platform_cbs &callbacks, const place &at, std::int32_t length,
                  std::uint8_t *buffer);
cerrno read_through(std::uint8_t *scratch, const lum_platform_cbs &callbacks, const place &at,
                    std::int32_t length, std::uint8_t *buffer);
cerrno read_once(const lum_platform_cbs &callbacks, const place &at, std::int32_t length,
                 std::uint8_t *scratch, std::uint8_t *buffer);

}  // namespace

cerrno lum_i2c_read_write(std::uint32_t direction, std::uint32_t slot, std::uint32_t instance,
                          std::uint32_t port, std::uint32_t page, std::uint32_t offset,
                          std::int32_t length, std::uint8_t *buffer) {
  const lum_platform_cbs &callbacks = lum_get_ctx()->platform_cbs;
  const std::uint32_t rsip = pack_rsip(0, slot, instance, port);
  {
    ports_reader reader;
    const lum_port_node_info *node = find_port(rsip);
    if (node == nullptr) {
      LUM_ERROR(114, "Port not found in DB for rsip=0x%x\n", rsip);
      return EINVAL;
    }
    if (shared_load(node->data.transceiver_disabled) != 0) {
      LUM_INFO(115, "HW not accessible for rsip=0x%x\n", rsip);
      return ENOENT;
    }
  }
  const place at = {slot, instance, port, page, offset};
  return direction == module_write ? write_byte(callbacks, at, buffer)
                                   : read_bytes(callbacks, at, length, buffer);
}

cerrno lum_optics_get_fw_upgrd_status(std::uint32_t rsip, std::uint32_t *status) {
  return lum_get_ctx()->platform_cbs.fw_upgrade_status(rsip, status);
}

namespace {

// The scratch bytes are zero before the first attempt.
cerrno read_bytes(const lum_platform_cbs &callbacks, const place &at, std::int32_t length,
                  std::uint8_t *buffer) {
  const bool has_callback =
      length == 1 ? callbacks.i2c_read_byte != nullptr : callbacks.i2c_read_block != nullptr;
  if (length < 1 || !has_callback) return 0;
  if (const auto size = static_cast<std::size_t>(length); size > stack_bytes) {
    const c_array<std::uint8_t> scratch = zeroed_array<std::uint8_t>(size);
    return scratch ? read_through(scratch.get(), callbacks, at, length, buffer) : ENOMEM;
  }
  std::array<std::uint8_t, stack_bytes> scratch = {};
  return read_through(scratch.data(), callbacks, at, length, buffer);
}

// The fifth attempt's outcome is traced whatever it is.
cerrno read_through(std::uint8_t *scratch, const lum_platform_cbs &callbacks, const place &at,
                    std::int32_t length, std::uint8_t *buffer) {
  for (int attempt = 1; attempt < max_attempts; ++attempt) {
    if (read_once(callbacks, at, length, scratch, buffer) == 0) return 0;
    usleep(retry_pause);
  }
  const cerrno rc = read_once(callbacks, at, length, scratch, buffer);
  LUM_ERROR(116, "Read failed for page %d offset %x for %d/%d rc %d\n", at.page, at.offset,
            at.instance, at.port, rc);
  return rc;
}

// What the callback left in the scratch buffer reaches the caller after every attempt.
cerrno read_once(const lum_platform_cbs &callbacks, const place &at, std::int32_t length,
                 std::uint8_t *scratch, std::uint8_t *buffer) {
  cerrno rc = 0;
  if (length == 1) {
    rc = callbacks.i2c_read_byte(at.slot, at.instance, at.port, at.page, at.offset, scratch);
    *buffer = *scratch;
  } else {
    rc = callbacks.i2c_read_block(at.slot, at.instance, at.port, at.page, at.offset, length,
                                  scratch);
    std::memcpy(buffer, scratch, static_cast<std::size_t>(length));
  }
  return rc;
}

cerrno write_byte(const lum_platform_cbs &callbacks, const place &at, const std::uint8_t *buffer) {
  if (callbacks.i2c_write_byte == nullptr) return 0;
  const std::uint8_t value = *buffer;
  const auto write = [&] {
    return callbacks.i2c_write_byte(at.slot, at.instance, at.port, at.page, at.offset, value);
  };
  cerrno rc = write();
  for (int retry = 1; rc != 0; ++retry) {
    LUM_ERROR(117, "Write failed for page %d offset %x val %x on %d/%d rc %d. Retry %d\n", at.page,
              at.offset, value, at.instance, at.port, rc, retry);
    if (retry == max_attempts) break;
    usleep(retry_pause);
    rc = write();
  }
  LUM_INFO(118, "Write page %d offset %x val %x on %d/%d rc %d\n", at.page, at.offset, value,
           at.instance, at.port, rc);
  return rc;
}

}  // namespace
