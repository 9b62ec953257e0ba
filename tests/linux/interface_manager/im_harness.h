// Sends batches to an interface manager and keeps what its completions say.
#pragma once

#include <gmock/gmock.h>
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lum.h"
#include "lum_linux/interface_manager.h"

namespace lum_linux {

inline constexpr auto soon = std::chrono::seconds(5);
inline constexpr auto a_moment = std::chrono::milliseconds(50);

// One completion, copied out of the reply.
struct completion {
  int tag = 0;
  std::string thread;
  cerrno batch_error = 0;
  int64_t count = 0;
  std::vector<cerrno> results;
  std::vector<std::string> names;                // "" for an element without a name
  std::vector<std::optional<uint32_t>> handles;  // decoded; none for an element without data
  std::vector<std::vector<uint8_t>> data;
};

class im_harness {
 public:
  explicit im_harness(const im_options &options = {}) : im(options) {
    completions_.reserve(most_completions);
  }

  // Keeping one of so many completions needs no memory.
  static constexpr size_t most_completions = 256;

  // `null_name` stands for an element whose name pointer is null.
  static constexpr const char *null_name = "(null)";

  cerrno create(int tag, const std::vector<std::string> &names) {
    return by_name(tag, names, LUM_IM_CREATE, LUM_CREATE_ELEMENT_SIZE);
  }
  cerrno remove(int tag, const std::vector<std::string> &names) {
    return by_name(tag, names, LUM_IM_DELETE, LUM_DELETE_ELEMENT_SIZE);
  }
  // `state` none sends elements without a state.
  cerrno update(int tag, const std::vector<uint32_t> &handles, std::optional<uint8_t> state) {
    std::vector<uint8_t> payload(handles.size() * LUM_UPDATE_ELEMENT_SIZE);
    for (size_t i = 0; state && i < handles.size(); ++i) {
      payload[i * LUM_UPDATE_ELEMENT_SIZE] = *state;
      payload[i * LUM_UPDATE_ELEMENT_SIZE + 1] = 1;
    }
    return im.update_by_handle(handles.data(), LUM_IFTYPE_OTS, payload.data(),
                               static_cast<uint32_t>(payload.size()), LUM_IM_UPDATE, context(tag),
                               static_cast<uint32_t>(handles.size()), complete);
  }

  // Waits until there are `count` completions and returns them all.
  std::vector<completion> wait(size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, soon, [&] { return completions_.size() >= count; }))
        << completions_.size() << " of " << count << " completions came";
    return completions_;
  }
  size_t completed() {
    const std::lock_guard lock(mutex_);
    return completions_.size();
  }
  // Creates the names in one batch and returns their handles.
  std::vector<uint32_t> created(const std::vector<std::string> &names) {
    const size_t before = completed();
    EXPECT_EQ(create(0, names), 0u);
    std::vector<uint32_t> handles;
    const auto all = wait(before + 1);
    for (const auto &handle : all[before].handles) handles.push_back(handle.value_or(0));
    return handles;
  }

  // Run on the manager's thread, at the start and at the end of each completion.
  std::function<void()> at_completion;
  std::function<void(int tag)> in_completion;

 private:
  struct request {
    im_harness *harness;
    int tag;
  };

  void *context(int tag) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::make_unique<request>(request{this, tag}));
    return requests_.back().get();
  }

  // The arrays are gone before the batch is answered, as the library's are.
  cerrno by_name(int tag, const std::vector<std::string> &names, uint32_t operation,
                 size_t element_size) {
    std::vector<const char *> pointers;
    for (const auto &name : names) {
      pointers.push_back(name == null_name ? nullptr : name.c_str());
    }
    const std::vector<uint8_t> payload(names.size() * element_size);
    const auto count = static_cast<uint32_t>(names.size());
    return im.request_by_name(pointers.data(), LUM_IFTYPE_OTS, payload.data(), count, operation,
                              context(tag), count, complete);
  }

  static void complete(imca_reply_info_type *reply, void *context) {
    const auto *sent = static_cast<const request *>(context);
    if (sent->harness->at_completion) sent->harness->at_completion();
    completion copy;
    copy.tag = sent->tag;
    char thread[16] = {};
    pthread_getname_np(pthread_self(), thread, sizeof thread);
    copy.thread = thread;
    copy.batch_error = reply->batch_error;
    copy.count = reply->count;
    for (int64_t i = 0; i < reply->count; ++i) copy_element(*reply, i, copy);
    im_harness &harness = *sent->harness;
    if (harness.in_completion) harness.in_completion(sent->tag);
    {
      const std::lock_guard lock(harness.mutex_);
      harness.completions_.push_back(std::move(copy));
    }
    harness.changed_.notify_all();
  }

  static void copy_element(imca_reply_info_type &reply, int64_t i, completion &copy) {
    copy.results.push_back(reply.results[i]);
    copy.names.push_back(reply.names[i] ? reply.names[i] : "");
    copy.data.emplace_back(reply.data[i], reply.data[i] + reply.data_sizes[i]);
    std::optional<uint32_t> handle;
    const wiredef_allocator allocator{std::malloc, std::free};
    wiredef_icpe_ext_intf_create_reply_data decoded{};
    if (reply.data[i] && wiredef_icpe_ext_intf_create_reply_data_decode_ext(
                             reply.data[i], reply.data_sizes[i], &decoded, &allocator) == 0) {
      if (wiredef_icpe_ext_intf_create_reply_data_have_required(&decoded)) {
        handle = decoded.ifhandle;
        reply.ifhandles[i] = decoded.ifhandle;  // as the library does
      }
      wiredef_icpe_ext_intf_create_reply_data_free_ext(&decoded, &allocator);
    }
    copy.handles.push_back(handle);
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<completion> completions_;
  std::vector<std::unique_ptr<request>> requests_;

 public:
  interface_manager im;  // last, so that its thread ends first
};

// The tags of completions in the order they came.
inline std::vector<int> tags(const std::vector<completion> &completions) {
  std::vector<int> result;
  for (const auto &one : completions) result.push_back(one.tag);
  return result;
}

}  // namespace lum_linux
