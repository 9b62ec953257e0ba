#include "callbacks.h"

#include <cerrno>
#include <cstring>
#include <span>

#include "interface_manager.h"
#include "module_bays.h"
#include "record.h"
#include "script.h"

namespace support {

client_side &client = *new client_side;

uint32_t client_side::led(uint32_t rsip) {
  const std::lock_guard hold(lock_);
  return leds_[rsip];
}

void client_side::set_led(uint32_t rsip, uint32_t state) {
  const std::lock_guard hold(lock_);
  leds_[rsip] = state;
}

uint32_t client_side::upgrade(uint32_t rsip) {
  const std::lock_guard hold(lock_);
  return upgrades_[rsip];
}

void client_side::set_upgrade(uint32_t rsip, uint32_t status) {
  const std::lock_guard hold(lock_);
  upgrades_[rsip] = status;
}

std::string client_side::name(uint32_t ifhandle) {
  const std::lock_guard hold(lock_);
  return names_[ifhandle];
}

void client_side::set_name(uint32_t ifhandle, const std::string &name) {
  const std::lock_guard hold(lock_);
  names_[ifhandle] = name;
}

namespace {

std::string list(const uint32_t *values, uint32_t count, bool as_hex = true) {
  if (values == nullptr) return "null";
  std::string text = "[";
  for (const uint32_t value : std::span(values, count)) {
    text += (text.size() == 1 ? "" : " ") + (as_hex ? shown(hex{value}) : shown(value));
  }
  return text + "]";
}

std::size_t element_size(uint32_t operation) {
  return operation == LUM_IM_CREATE ? LUM_CREATE_ELEMENT_SIZE : LUM_DELETE_ELEMENT_SIZE;
}

cerrno im_req_by_name(const char *const *names, uint16_t iftype, const void *payload,
                      uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                      imca_completion complete) {
  note("im_req_by_name", iftype, payload_count, hex{operation}, count);
  batch incoming;
  incoming.operation = operation;
  incoming.count = count;
  incoming.iftype = iftype;
  incoming.payload_argument = payload_count;
  for (uint32_t i = 0; i < count; ++i) {
    incoming.names.push_back(names[i] == nullptr ? std::nullopt
                                                 : std::optional<std::string>(names[i]));
  }
  const auto *bytes = static_cast<const uint8_t *>(payload);
  incoming.payload.assign(bytes, bytes + payload_count * element_size(operation));
  incoming.context = context;
  incoming.complete = complete;
  return im.take("im_req_by_name", std::move(incoming));
}

cerrno im_update_req_by_ifhandle(const uint32_t *ifhandles, uint32_t iftype, const void *payload,
                                 uint32_t payload_size, uint32_t operation, void *context,
                                 uint32_t count, imca_completion complete) {
  note("im_update_req_by_ifhandle", iftype, payload_size, hex{operation}, count);
  batch incoming;
  incoming.operation = operation;
  incoming.count = count;
  incoming.iftype = iftype;
  incoming.payload_argument = payload_size;
  incoming.ifhandles.assign(ifhandles, ifhandles + count);
  const auto *bytes = static_cast<const uint8_t *>(payload);
  incoming.payload.assign(bytes, bytes + payload_size);
  incoming.context = context;
  incoming.complete = complete;
  return im.take("im_update_req_by_ifhandle", std::move(incoming));
}

cerrno ctrl_op_notify(uint32_t operation, uint32_t count, const uint32_t *rsips,
                      const uint32_t *sub_ports, const uint32_t *ifhandles) {
  record_call("ctrl_op_notify", {shown(operation), shown(count), list(rsips, count),
                                 list(sub_ports, count, false), list(ifhandles, count)});
  return script.answer("ctrl_op_notify");
}

cerrno ctrl_update_notify(uint32_t count, const uint32_t *rsips) {
  record_call("ctrl_update_notify", {shown(count), list(rsips, count)});
  return script.answer("ctrl_update_notify");
}

cerrno ifname_from_ifh(uint32_t ifhandle, char *name) {
  note("ifname_from_ifh", hex{ifhandle});
  if (const auto code = script.verdict("ifname_from_ifh")) return *code;
  const std::string known = client.name(ifhandle);
  if (known.empty()) return ENOENT;
  std::strncpy(name, known.c_str(), LUM_DEVID_NAME_SIZE);
  return 0;
}

cerrno led_get_state(uint32_t rsip, uint32_t zero, uint32_t *state) {
  note("led_get_state", hex{rsip}, zero);
  if (const auto code = script.verdict("led_get_state")) return *code;
  *state = client.led(rsip);
  return 0;
}

cerrno led_set_state(uint32_t rsip, uint32_t zero, uint32_t state) {
  note("led_set_state", hex{rsip}, zero, state);
  if (const auto code = script.verdict("led_set_state")) return *code;
  client.set_led(rsip, state);
  return 0;
}

cerrno fw_upgrade_status(uint32_t rsip, uint32_t *status) {
  note("fw_upgrade_status", hex{rsip});
  if (const auto code = script.verdict("fw_upgrade_status")) return *code;
  *status = client.upgrade(rsip);
  return 0;
}

cerrno i2c_read_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                     uint32_t offset, uint8_t *value) {
  note("i2c_read_byte", slot, instance, port, page, offset);
  return modules.read("i2c_read_byte", slot, instance, port, page, offset, 1, value);
}

cerrno i2c_read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                      uint32_t offset, int32_t length, uint8_t *buffer) {
  note("i2c_read_block", slot, instance, port, page, offset, length);
  return modules.read("i2c_read_block", slot, instance, port, page, offset, length, buffer);
}

cerrno i2c_write_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                      uint32_t offset, uint8_t value) {
  note("i2c_write_byte", slot, instance, port, page, offset, value);
  return modules.write(slot, instance, port, page, offset, value);
}

void reserved_12() { note("reserved_12"); }
void reserved_13() { note("reserved_13"); }

}  // namespace

lum_platform_cbs full_callbacks() {
  return {im_req_by_name,  im_update_req_by_ifhandle,
          ctrl_op_notify,  ctrl_update_notify,
          ifname_from_ifh, led_get_state,
          led_set_state,   fw_upgrade_status,
          i2c_read_byte,   i2c_read_block,
          i2c_write_byte,  reserved_12,
          reserved_13};
}

}  // namespace support
