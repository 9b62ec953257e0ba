// The elements of the interface manager's batches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lum.h"

namespace lum {

using create_element = std::span<std::uint8_t, LUM_CREATE_ELEMENT_SIZE>;
using update_element = std::span<std::uint8_t, LUM_UPDATE_ELEMENT_SIZE>;
using delete_element = std::span<std::uint8_t, LUM_DELETE_ELEMENT_SIZE>;

// Fill a zeroed element.
void fill_create_element(create_element element, const lum_controller_attrs &attrs);
void fill_update_element(update_element element);
void set_update_state(update_element element, std::uint32_t state);
void set_update_attrs(update_element element, const lum_controller_attrs &attrs);
void fill_delete_element(delete_element element);

}  // namespace lum
