#include "interface_manager/im_reply.h"

#include <algorithm>

#include "lum_linux/create_replies.h"

namespace lum_linux {

im_reply::im_reply(size_t elements)
    : name_texts_(elements),
      names_(elements),
      results_(elements),
      handles_(elements),
      data_bytes_(elements),
      data_sizes_(elements),
      data_(elements) {
  record_.count = static_cast<int64_t>(elements);
  record_.ifhandles = handles_.data();
  record_.results = results_.data();
  record_.names = names_.data();
  record_.data_sizes = data_sizes_.data();
  record_.data = data_.data();
}

void im_reply::set_name(size_t element, std::string_view name) {
  auto &text = name_texts_[element];
  text[name.copy(text.data(), longest_name)] = '\0';
  names_[element] = text.data();
}

void im_reply::fail_all(cerrno code) {
  record_.batch_error = code;
  std::ranges::fill(results_, code);
  std::ranges::fill(data_sizes_, 0u);
  std::ranges::fill(data_, nullptr);
}

void im_reply::set_create_data(size_t element, uint32_t handle, im_malformation kind) {
  std::vector<uint8_t> &bytes = data_bytes_[element];
  switch (kind) {
    case im_malformation::none:
      bytes = encode_create_reply({handle, {}, false});
      break;
    case im_malformation::garbage:
      bytes = {0xDE, 0xAD, 0xBE, 0xEF, 0xFF, 0x00, 0xFF, 0x7F, 0x80, 0x55};
      break;
    case im_malformation::truncated:
      bytes = encode_create_reply({handle, {}, true});
      break;
    case im_malformation::missing_member:
      bytes = encode_create_reply({{}, "no handle", false});
      break;
    case im_malformation::absent:
      return;
  }
  data_[element] = bytes.data();
  data_sizes_[element] = static_cast<uint32_t>(bytes.size());
}

}  // namespace lum_linux
