// The interface manager as the API shows it.
#pragma once

#include "lum_linux/interface_manager.h"
#include "views/json.h"
#include "words/malformations.h"

namespace lumd {

class driver;

lum_linux::im_malformation malformation_of(const lum_words::malformation &word);

// The interface manager's controllers, then those that only the library believes in, and what has
// become of the batches.
json show_controllers(driver &node);

// How it behaves: the faults that were asked for.
json show_behaviour(const lum_linux::im_behaviour &now);

json show_im(driver &node);

}  // namespace lumd
