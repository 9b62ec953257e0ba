// The reply to one batch, with the memory behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "imca.h"
#include "lum.h"
#include "lum_linux/interface_manager.h"

namespace lum_linux {

// Made when its batch is accepted, filled in and read on the interface manager's thread. The record
// points into the object. Only set_create_data needs memory, so a batch can always be answered.
class im_reply {
 public:
  explicit im_reply(size_t elements);
  im_reply(const im_reply &) = delete;
  im_reply &operator=(const im_reply &) = delete;

  // Sets one element's name, cut to longest_name bytes; an element without one has none.
  void set_name(size_t element, std::string_view name);
  void set_result(size_t element, cerrno result) { results_[element] = result; }
  void set_handle(size_t element, uint32_t handle) { handles_[element] = handle; }
  // Encodes the create reply that carries `handle`, wrongly when asked to. May throw
  // std::bad_alloc.
  void set_create_data(size_t element, uint32_t handle, im_malformation kind);

  void set_batch_error(cerrno code) { record_.batch_error = code; }
  // Lets the reply say that no element was answered.
  void set_empty() { record_.count = 0; }
  // Fails the batch and each of its elements, whatever was set for them before but for their names.
  void fail_all(cerrno code);

  imca_reply_info_type *record() { return &record_; }

  static constexpr size_t longest_name = LUM_IFNAME_SIZE;

 private:
  imca_reply_info_type record_{};
  std::vector<std::array<char, longest_name + 1>> name_texts_;
  std::vector<const char *> names_;
  std::vector<cerrno> results_;
  std::vector<uint32_t> handles_;
  std::vector<std::vector<uint8_t>> data_bytes_;
  std::vector<uint32_t> data_sizes_;
  std::vector<const uint8_t *> data_;
};

}  // namespace lum_linux
