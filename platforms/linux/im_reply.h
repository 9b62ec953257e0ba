// The reply to one batch, with the memory behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "imca.h"
#include "lum_linux/interface_manager.h"

namespace lum_linux {

// Made and read on the interface manager's thread. The record points into the object.
class im_reply {
 public:
  explicit im_reply(size_t elements);
  im_reply(const im_reply &) = delete;
  im_reply &operator=(const im_reply &) = delete;

  // Set one element. `name` nothing stands for an element without a name.
  void set_name(size_t element, const std::optional<std::string> &name);
  void set_result(size_t element, cerrno result) { results_[element] = result; }
  void set_handle(size_t element, uint32_t handle) { handles_[element] = handle; }
  // Encodes the create reply that carries `handle`, wrongly when asked to.
  void set_create_data(size_t element, uint32_t handle, im_malformation kind);

  void set_batch_error(cerrno code) { record_.batch_error = code; }
  // Lets the reply say that no element was answered.
  void set_empty() { record_.count = 0; }

  imca_reply_info_type *record() { return &record_; }

 private:
  imca_reply_info_type record_{};
  std::vector<std::unique_ptr<std::string>> name_texts_;
  std::vector<const char *> names_;
  std::vector<cerrno> results_;
  std::vector<uint32_t> handles_;
  std::vector<std::vector<uint8_t>> data_bytes_;
  std::vector<uint32_t> data_sizes_;
  std::vector<const uint8_t *> data_;
};

}  // namespace lum_linux
