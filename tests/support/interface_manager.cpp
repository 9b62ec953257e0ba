#include "interface_manager.h"

#include <thread>

#include "lum_linux/services.h"
#include "record.h"
#include "script.h"

namespace support {

interface_manager &im = *new interface_manager;

std::vector<uint8_t> batch::element(uint32_t index) const {
  const std::size_t size = count == 0 ? 0 : payload.size() / count;
  const auto first = payload.begin() + static_cast<std::ptrdiff_t>(index * size);
  return {first, first + static_cast<std::ptrdiff_t>(size)};
}

batch_reply interface_manager::success(const batch &of) {
  batch_reply reply;
  for (uint32_t i = 0; i < of.count; ++i) {
    element_reply element;
    if (i < of.names.size()) element.name = of.names[i];
    if (of.operation == LUM_IM_CREATE) {
      element.data = good_reply(element.name ? handle_of(*element.name) : 0);
    }
    reply.elements.push_back(std::move(element));
  }
  return reply;
}

std::vector<uint32_t> interface_manager::answer(batch &which) {
  return answer(which, success(which));
}

std::vector<uint32_t> interface_manager::answer(batch &which, const batch_reply &reply) {
  std::vector<uint32_t> ifhandles;
  std::thread own([&] { ifhandles = complete(which, reply); });
  own.join();
  return ifhandles;
}

void interface_manager::answer_here(batch &which) { complete(which, success(which)); }

std::vector<uint32_t> interface_manager::complete(batch &which, const batch_reply &reply) {
  const std::size_t size = reply.elements.size();
  std::vector<uint32_t> ifhandles(size);
  std::vector<cerrno> results(size);
  std::vector<const char *> names(size);
  std::vector<uint32_t> sizes(size);
  std::vector<const uint8_t *> data(size);
  for (std::size_t i = 0; i < size; ++i) {
    const element_reply &element = reply.elements[i];
    results[i] = element.result;
    names[i] = element.name ? element.name->c_str() : nullptr;
    sizes[i] = static_cast<uint32_t>(element.data.size());
    data[i] = element.without_data ? nullptr : element.data.data();
  }
  imca_reply_info_type info = {};
  info.batch_error = reply.batch_error;
  info.count = reply.count.value_or(static_cast<int64_t>(size));
  info.ifhandles = ifhandles.data();
  info.results = results.data();
  info.names = names.data();
  info.data_sizes = sizes.data();
  info.data = data.data();
  which.answered = true;
  which.complete(&info, which.context);
  return ifhandles;
}

void interface_manager::answer_all() {
  for (std::size_t i = 0; i < batches.size(); ++i) {
    if (!batches[i].answered) answer(batches[i]);
  }
}

uint32_t interface_manager::handle_of(const std::string &name) {
  const std::lock_guard hold(lock_);
  uint32_t &handle = handles_[name];
  if (handle == 0) handle = ++last_handle_;
  return handle;
}

cerrno interface_manager::take(const char *call, batch incoming) {
  if (const auto code = script.verdict(call)) return *code;
  batch *taken = nullptr;
  {
    const std::lock_guard hold(lock_);
    taken = &batches.emplace_back(std::move(incoming));
  }
  if (answers_at_once) answer(*taken);
  return 0;
}

std::vector<uint8_t> good_reply(uint32_t ifhandle) {
  return lum_linux::encode_create_reply({ifhandle, std::nullopt, false});
}

std::vector<uint8_t> reply_without_handle() {
  return lum_linux::encode_create_reply({std::nullopt, "no handle", false});
}

std::vector<uint8_t> undecodable_reply() {
  return lum_linux::encode_create_reply({0x1234, std::nullopt, true});
}

}  // namespace support
