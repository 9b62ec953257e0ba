// An interface manager that grants every request, on a thread of its own, and gives out handles by
// counting. Its create reply is the handle's four bytes, as minimal_services.cpp decodes it.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "own_platform.h"

namespace {

std::atomic<uint32_t> next_ifhandle{0x1000};

// What a batch needs beyond the request call: the caller's arrays are gone by the time of the
// answer.
struct batch {
  uint32_t operation;
  uint32_t count;
  std::vector<std::string> names;
  void *context;
  imca_completion complete;
};

void answer(const batch &asked) {
  std::vector<uint32_t> ifhandles(asked.count), new_ifhandles(asked.count), sizes(asked.count);
  std::vector<cerrno> results(asked.count);
  std::vector<const char *> names(asked.count);
  std::vector<const uint8_t *> data(asked.count);
  for (uint32_t i = 0; i < asked.count && asked.operation == LUM_IM_CREATE; ++i) {
    if (asked.names[i].empty()) {
      results[i] = LUM_IM_ELEMENT_BENIGN;
      continue;
    }
    names[i] = asked.names[i].c_str();
    new_ifhandles[i] = next_ifhandle++;
    data[i] = reinterpret_cast<const uint8_t *>(&new_ifhandles[i]);
    sizes[i] = sizeof(uint32_t);
  }
  imca_reply_info_type reply = {};
  reply.count = asked.count;
  reply.ifhandles = ifhandles.data();
  reply.results = results.data();
  reply.names = names.data();
  reply.data_sizes = sizes.data();
  reply.data = data.data();
  asked.complete(&reply, asked.context);
}

}  // namespace

cerrno im_request_by_name(const char *const *names, uint16_t, const void *, uint32_t,
                          uint32_t operation, void *context, uint32_t count,
                          imca_completion complete) {
  batch asked = {operation, count, {}, context, complete};
  for (uint32_t i = 0; i < count; ++i)
    asked.names.emplace_back(names[i] == nullptr ? "" : names[i]);
  std::thread([asked] { answer(asked); }).detach();
  return 0;
}

cerrno im_update_by_ifhandle(const uint32_t *, uint32_t, const void *, uint32_t, uint32_t operation,
                             void *context, uint32_t count, imca_completion complete) {
  const batch asked = {operation, count, {}, context, complete};
  std::thread([asked] { answer(asked); }).detach();
  return 0;
}
