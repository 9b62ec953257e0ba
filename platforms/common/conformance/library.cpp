#include "library.h"

#include <deque>
#include <mutex>
#include <set>

#include "lum/lifecycle.h"

namespace conformance {
namespace {

// What the callbacks have written down; they have no context of their own.
struct sent_batch {
  batch seen;
  void *context = nullptr;
  imca_completion complete = nullptr;
};
std::mutex lock;
std::deque<sent_batch> batches;     // under lock; batches stay where they are
std::set<std::thread::id> callers;  // under lock
std::atomic<uint32_t> created{0}, deleted{0}, reads{0};
lum_platform_cbs of_platform = {};

std::vector<answered_element> elements_of(const imca_reply_info_type &reply) {
  std::vector<answered_element> elements;
  for (int64_t i = 0; i < reply.count; ++i) {
    answered_element one;
    if (reply.results != nullptr) one.result = reply.results[i];
    if (reply.names != nullptr && reply.names[i] != nullptr) one.name = reply.names[i];
    if (reply.data != nullptr && reply.data_sizes != nullptr && reply.data[i] != nullptr) {
      one.data.assign(reply.data[i], reply.data[i] + reply.data_sizes[i]);
    }
    elements.push_back(one);
  }
  return elements;
}

// liblum takes one answer only: what comes again is counted and goes no further.
void take_answer(imca_reply_info_type *reply, void *context) {
  auto &sent = *static_cast<sent_batch *>(context);
  {
    const std::lock_guard hold(lock);
    ++sent.seen.completions;
    sent.seen.answerer = std::this_thread::get_id();
    callers.insert(sent.seen.answerer);
    if (reply != nullptr) {
      sent.seen.batch_error = reply->batch_error;
      sent.seen.elements = elements_of(*reply);
    }
    if (sent.seen.completions > 1) return;
  }
  sent.complete(reply, sent.context);
}

sent_batch &note(uint32_t operation, uint32_t count, void *context, imca_completion complete) {
  const std::lock_guard hold(lock);
  sent_batch &sent = batches.emplace_back();
  sent.seen.operation = operation;
  sent.seen.count = count;
  sent.seen.sender = std::this_thread::get_id();
  callers.insert(sent.seen.sender);
  sent.context = context;
  sent.complete = complete;
  return sent;
}

// Names and payload are gone when the call returns: other bytes are in their place then.
cerrno send_by_name(const char *const *names, uint16_t iftype, const void *payload,
                    uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                    imca_completion complete) {
  sent_batch &sent = note(operation, count, context, complete);
  for (uint32_t i = 0; i < count; ++i) {
    sent.seen.names.emplace_back(names[i] == nullptr ? "" : names[i]);
  }
  static std::deque<std::string> gone_names;
  static std::deque<std::vector<uint8_t>> gone_payloads;
  std::vector<const char *> given;
  const size_t first_name = gone_names.size();
  for (uint32_t i = 0; i < count; ++i) {
    if (names[i] == nullptr) {
      given.push_back(nullptr);
    } else {
      given.push_back(gone_names.emplace_back(names[i]).c_str());
    }
  }
  const auto *bytes = static_cast<const uint8_t *>(payload);
  const uint32_t element =
      operation == LUM_IM_CREATE ? LUM_CREATE_ELEMENT_SIZE : LUM_DELETE_ELEMENT_SIZE;
  auto &copy = gone_payloads.emplace_back(bytes, bytes + size_t{payload_count} * element);
  const cerrno rc = of_platform.im_req_by_name(given.data(), iftype, copy.data(), payload_count,
                                               operation, &sent, count, take_answer);
  for (size_t i = first_name; i < gone_names.size(); ++i) {
    gone_names[i].assign(gone_names[i].size(), '#');
  }
  copy.assign(copy.size(), 0xA5);
  return rc;
}

cerrno send_update(const uint32_t *ifhandles, uint32_t iftype, const void *payload,
                   uint32_t payload_size, uint32_t operation, void *context, uint32_t count,
                   imca_completion complete) {
  sent_batch &sent = note(operation, count, context, complete);
  return of_platform.im_update_req_by_ifhandle(ifhandles, iftype, payload, payload_size, operation,
                                               &sent, count, take_answer);
}

cerrno take_notice(uint32_t operation, uint32_t count, const uint32_t *rsips,
                   const uint32_t *sub_ports, const uint32_t *ifhandles) {
  for (uint32_t i = 0; i < count; ++i) {
    if (ifhandles[i] != 0) ++(operation == 1 ? created : deleted);
  }
  if (of_platform.ctrl_op_notify == nullptr) return 0;
  return of_platform.ctrl_op_notify(operation, count, rsips, sub_ports, ifhandles);
}

cerrno note_read(cerrno rc) {
  const std::lock_guard hold(lock);
  if (rc == 0 && callers.count(std::this_thread::get_id()) == 0) ++reads;
  return rc;
}

cerrno read_byte(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                 uint8_t *value) {
  return note_read(of_platform.i2c_read_byte(slot, instance, port, page, offset, value));
}

cerrno read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                  int32_t length, uint8_t *buffer) {
  return note_read(of_platform.i2c_read_block(slot, instance, port, page, offset, length, buffer));
}

lum_platform_cbs watched_table() {
  lum_platform_cbs table = of_platform;
  table.im_req_by_name = send_by_name;
  table.im_update_req_by_ifhandle = send_update;
  table.ctrl_op_notify = take_notice;
  table.i2c_read_byte = read_byte;
  table.i2c_read_block = read_block;
  return table;
}

void start_library() {
  callers.insert(std::this_thread::get_id());
  lum_infra_params params = start_platform();
  of_platform = callbacks();
  require(of_platform.im_req_by_name != nullptr && of_platform.im_update_req_by_ifhandle != nullptr,
          "there is no callback to the interface manager");
  require(of_platform.i2c_read_byte != nullptr && of_platform.i2c_read_block != nullptr,
          "there is no callback that reads a module");
  require(of_platform.fw_upgrade_status != nullptr, "fw_upgrade_status is null");
  const lum_platform_cbs table = watched_table();
  params.platform_cbs = &table;
  cerrno rc = lum_lib_init();
  require(rc == 0, "lum_lib_init answers %u", rc);
  rc = lum_infra_init(&params);
  require(rc == 0, "lum_infra_init answers %u", rc);
}

}  // namespace

void bring_up() {
  start_library();
  const auto [slot, instance, port] = port_cage();
  const lum_slot_props slot_props = {1, 256};
  lum_port_props port_props = platform().port;
  port_props.port_index = port;
  cerrno rc = lum_plat_init(0, slot, instance, &slot_props);
  require(rc == 0, "lum_plat_init answers %u", rc);
  rc = lum_create_ports(1, &port_props);
  require(rc == 0, "lum_create_ports answers %u", rc);
  require(comes([] { return controllers_told() == LUM_SUB_PORTS; }),
          "%u of %u controllers were created", controllers_told(), uint32_t{LUM_SUB_PORTS});
}

batch newest_batch() {
  const auto newest = [] {
    const std::lock_guard hold(lock);
    return batches.back().seen;
  };
  require(comes([&] { return newest().completions > 0; }), "the batch is not answered");
  std::this_thread::sleep_for(settling_time);
  return newest();
}

uint32_t controllers_told() { return created - deleted; }

uint32_t polled_reads() { return reads; }

}  // namespace conformance
