// Reads the [[motion]] tables of a module's description.
#pragma once

#include <vector>

#include "description/toml_table.h"
#include "lum_linux/reading_motion.h"

namespace lum_linux {

// What is wrong with one is reported, and the motion left out.
std::vector<reading_motion> compile_motions(toml_table &module, problem_list &problems);

}  // namespace lum_linux
