#include "lum_linux/interface_manager.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "interface_manager/im_core.h"
#include "lum.h"

namespace lum_linux {
namespace {

constexpr uint32_t max_elements = 0xFFFF;  // completions count elements in 16 bits

std::vector<std::optional<std::string>> copy_names(const char *const *names, uint32_t count) {
  std::vector<std::optional<std::string>> copy(count);
  for (uint32_t i = 0; i < count; ++i) {
    if (names[i] && names[i][0]) copy[i].emplace(names[i], strnlen(names[i], LUM_IFNAME_SIZE));
  }
  return copy;
}

std::vector<uint8_t> copy_bytes(const void *bytes, size_t size) {
  const auto *first = static_cast<const uint8_t *>(bytes);
  return {first, first + size};
}

}  // namespace

interface_manager::interface_manager(const im_options &options)
    : core_(std::make_shared<core>(options)) {
  core_->start();
}

interface_manager::~interface_manager() { stop(); }

cerrno interface_manager::request_by_name(const char *const *names, uint16_t, const void *payload,
                                          uint32_t payload_count, uint32_t operation, void *context,
                                          uint32_t count, imca_completion complete) noexcept try {
  const bool creates = operation == LUM_IM_CREATE;
  if (!names || !payload || !complete || (!creates && operation != LUM_IM_DELETE)) return EINVAL;
  if (count == 0 || count > max_elements || payload_count != count) return EINVAL;
  im_batch batch;
  batch.operation = operation;
  batch.count = count;
  batch.reply = std::make_unique<im_reply>(count);
  batch.names = copy_names(names, count);
  batch.payload = copy_bytes(
      payload, size_t{count} * (creates ? LUM_CREATE_ELEMENT_SIZE : LUM_DELETE_ELEMENT_SIZE));
  batch.created.reserve(creates ? count : 0);
  batch.context = context;
  batch.complete = complete;
  return core_->accept(std::move(batch));
} catch (...) {
  return ENOMEM;
}

cerrno interface_manager::update_by_handle(const uint32_t *ifhandles, uint32_t, const void *payload,
                                           uint32_t payload_size, uint32_t operation, void *context,
                                           uint32_t count, imca_completion complete) noexcept try {
  if (!ifhandles || !payload || !complete || operation != LUM_IM_UPDATE) return EINVAL;
  if (count == 0 || count > max_elements) return EINVAL;
  if (payload_size != count * LUM_UPDATE_ELEMENT_SIZE) return EINVAL;
  im_batch batch;
  batch.operation = operation;
  batch.count = count;
  batch.reply = std::make_unique<im_reply>(count);
  batch.handles.assign(ifhandles, ifhandles + count);
  batch.payload = copy_bytes(payload, payload_size);
  batch.context = context;
  batch.complete = complete;
  return core_->accept(std::move(batch));
} catch (...) {
  return ENOMEM;
}

bool interface_manager::stop(std::chrono::milliseconds bound) { return core_->stop(bound); }

std::vector<im_controller> interface_manager::controllers() const {
  const std::lock_guard lock(core_->mutex);
  return core_->controllers.list();
}

std::optional<im_controller> interface_manager::find(uint32_t handle) const {
  const std::lock_guard lock(core_->mutex);
  const im_controller *known = core_->controllers.find(handle);
  return known ? std::optional(*known) : std::nullopt;
}

std::optional<std::string> interface_manager::name_of(uint32_t handle) const {
  const std::lock_guard lock(core_->mutex);
  const im_controller *known = core_->controllers.find(handle);
  return known ? std::optional(known->name) : std::nullopt;
}

std::optional<uint32_t> interface_manager::handle_of(const std::string &name) const {
  const std::lock_guard lock(core_->mutex);
  return core_->controllers.handle_of(name);
}

im_statistics interface_manager::statistics() const {
  const std::lock_guard lock(core_->mutex);
  return core_->statistics;
}

im_behaviour interface_manager::behaviour() const {
  const std::lock_guard lock(core_->mutex);
  im_behaviour now;
  now.refuse = core_->refuse.left;
  now.refuse_code = core_->refuse_code;
  now.drop = core_->drop.left;
  now.fail = core_->fail.left;
  now.fail_code = core_->fail_code;
  now.empty = core_->empty.left;
  now.malform = core_->malform.left;
  now.malformation = core_->malformation;
  now.fail_names.insert(core_->elements.names.begin(), core_->elements.names.end());
  now.fail_nth = core_->elements.nth;
  now.fail_nth_code = core_->elements.nth_code;
  now.delay_min = core_->delay_min;
  now.delay_max = core_->delay_max;
  now.out_of_order = core_->out_of_order;
  now.held = core_->held;
  return now;
}

interface_manager::account::account(const interface_manager &manager) : core_(manager.core_) {
  core::account_of_this_thread() = this;
}

interface_manager::account::~account() { end(); }

void interface_manager::account::end() {
  if (core::account_of_this_thread() == this) core::account_of_this_thread() = nullptr;
}

std::vector<im_batch_report> interface_manager::account::batches() const {
  const std::lock_guard lock(core_->mutex);
  std::vector<im_batch_report> result;
  for (const auto &one : batches_) result.push_back(*one);
  return result;
}

bool interface_manager::wait_idle(std::chrono::milliseconds bound) const {
  return core_->wait_idle(bound);
}

bool interface_manager::restart(pending what, std::chrono::milliseconds bound) {
  return core_->restart(what, bound);
}

void interface_manager::refuse_next(uint32_t batches, cerrno code) {
  core_->change([&] {
    core_->refuse.left = batches;
    core_->refuse_code = code;
  });
}

void interface_manager::drop_next(uint32_t batches) {
  core_->change([&] { core_->drop.left = batches; });
}

void interface_manager::fail_next(uint32_t batches, cerrno batch_error) {
  core_->change([&] {
    core_->fail.left = batches;
    core_->fail_code = batch_error;
  });
}

void interface_manager::empty_next(uint32_t batches) {
  core_->change([&] { core_->empty.left = batches; });
}

void interface_manager::malform_next(uint32_t batches, im_malformation kind) {
  core_->change([&] {
    core_->malform.left = batches;
    core_->malformation = kind;
  });
}

void interface_manager::fail_name(const std::string &name, cerrno code) {
  core_->change([&] {
    if (code == 0) {
      core_->elements.names.erase(name);
    } else {
      core_->elements.names[name] = code;
    }
  });
}

void interface_manager::fail_every(uint32_t nth, cerrno code) {
  core_->change([&] {
    core_->elements.nth = code == 0 ? 0 : nth;
    core_->elements.nth_code = code;
    core_->elements.counted = 0;
  });
}

void interface_manager::set_delay(std::chrono::milliseconds min, std::chrono::milliseconds max,
                                  uint32_t seed) {
  core_->change([&] {
    core_->delay_min = std::max(min, std::chrono::milliseconds(0));
    core_->delay_max = std::max(core_->delay_min, max);
    core_->random.seed(seed);
  });
}

void interface_manager::set_out_of_order(bool on, std::chrono::milliseconds window) {
  core_->change([&] {
    core_->out_of_order = on;
    core_->window = window;
  });
}

void interface_manager::hold(bool on) {
  core_->change([&] { core_->held = on; });
}

void interface_manager::behave() {
  core_->change([&] {
    for (fault_counter *fault :
         {&core_->refuse, &core_->drop, &core_->fail, &core_->empty, &core_->malform}) {
      fault->left = 0;
    }
    core_->elements = {};
    core_->delay_min = core_->delay_max = {};
    core_->out_of_order = false;
    core_->held = false;
  });
}

}  // namespace lum_linux
