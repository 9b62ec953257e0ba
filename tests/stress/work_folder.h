// A folder of a stress test's own; on a disk only where the test asks for one.
#pragma once

#include "test_folder.h"

namespace stress {

using ::folder_place;
using ::write_file;

class work_folder : public test_folder {
 public:
  explicit work_folder(folder_place place = folder_place::memory) : test_folder(place) {}
};

}  // namespace stress
