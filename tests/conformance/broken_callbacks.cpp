// Callbacks with mistakes that are easily made.
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "broken.h"
#include "own_platform.h"

namespace {

using namespace std::chrono_literals;

// ---- The interface manager ----

struct request {
  void *context;
  imca_completion complete;
  std::vector<const char *> names;  // the caller's: gone when the request call has returned
  std::mutex lock;
  std::condition_variable changed;
  imca_reply_info_type *reply = nullptr;  // under lock, while it is valid
  bool done = false;                      // under lock
};

void answer_with_names_that_are_gone(imca_reply_info_type *reply, request &asked) {
  std::this_thread::sleep_for(100ms);
  reply->names = asked.names.data();
  asked.complete(reply, asked.context);
}

void answer_with_failed_elements(imca_reply_info_type *reply, request &asked) {
  std::vector<cerrno> results(reply->results, reply->results + reply->count);
  for (cerrno &one : results) {
    if (one == LUM_IM_ELEMENT_BENIGN) one = EINVAL;
  }
  reply->results = results.data();
  asked.complete(reply, asked.context);
}

void answer_with_one_handle(imca_reply_info_type *reply, request &asked) {
  std::vector<const uint8_t *> data(static_cast<size_t>(reply->count), reply->data[0]);
  reply->data = data.data();
  asked.complete(reply, asked.context);
}

void leave_the_answer_to_the_sender(imca_reply_info_type *reply, request &asked) {
  std::unique_lock hold(asked.lock);
  asked.reply = reply;
  asked.changed.notify_all();
  asked.changed.wait(hold, [&] { return asked.done; });
}

void answer(imca_reply_info_type *reply, void *context) {
  auto &asked = *static_cast<request *>(context);
  if (broken("names_are_not_copied")) return answer_with_names_that_are_gone(reply, asked);
  if (broken("empty_elements_fail")) return answer_with_failed_elements(reply, asked);
  if (broken("controllers_share_a_handle")) return answer_with_one_handle(reply, asked);
  if (broken("answers_come_on_the_senders_thread")) {
    return leave_the_answer_to_the_sender(reply, asked);
  }
  asked.complete(reply, asked.context);
  if (broken("answers_come_twice")) asked.complete(reply, asked.context);
}

void answer_here(request &asked) {
  std::unique_lock hold(asked.lock);
  asked.changed.wait(hold, [&] { return asked.reply != nullptr; });
  asked.complete(asked.reply, asked.context);
  asked.done = true;
  asked.changed.notify_all();
}

cerrno request_by_name(const char *const *names, uint16_t iftype, const void *payload,
                       uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                       imca_completion complete) {
  auto *asked = new request{context, complete, {names, names + count}, {}, {}};
  const cerrno rc =
      im_request_by_name(names, iftype, payload, payload_count, operation, asked, count, answer);
  if (broken("answers_come_on_the_senders_thread")) answer_here(*asked);
  return rc;
}

// ---- The module and the LED ----

// Bytes of the page that is selected, by a select that others may change before the read.
std::atomic<uint32_t> selected{0};

cerrno read_block(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
                  int32_t length, uint8_t *buffer) {
  if (broken("empty_cages_read_as_zeros") && port != the_port) return 0;
  if (broken("pages_are_selected_without_a_lock") && offset >= 128) {
    selected = page;
    std::this_thread::sleep_for(1ms);
    page = selected;
  }
  return callbacks().i2c_read_block(slot, instance, port, page, offset, length, buffer);
}

cerrno get_led(uint32_t rsip, uint32_t zero, uint32_t *state) {
  if (broken("leds_are_always_normal")) {
    *state = LUM_LED_NORMAL;
    return 0;
  }
  return callbacks().led_get_state(rsip, zero, state);
}

}  // namespace

lum_platform_cbs broken_callbacks() {
  lum_platform_cbs table = callbacks();
  table.im_req_by_name = request_by_name;
  table.i2c_read_block = read_block;
  table.led_get_state = get_led;
  return table;
}
