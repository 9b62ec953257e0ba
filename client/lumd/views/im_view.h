// The interface manager as the API shows it.
#pragma once

#include <span>
#include <string_view>

#include "lum_linux/interface_manager.h"
#include "views/json.h"

namespace lumd {

class driver;

struct named_malformation {
  std::string_view name;
  lum_linux::im_malformation value;
};
std::span<const named_malformation> malformations();

// The interface manager's controllers, then those that only the library believes in, and what has
// become of the batches.
json show_controllers(driver &node);

// How it behaves: the faults that were asked for.
json show_behaviour(const lum_linux::im_behaviour &now);

json show_im(driver &node);

}  // namespace lumd
