// A folder for what benchmarks write, gone when they end, and the checkpoint store in it.
#pragma once

#include <filesystem>

namespace bench {

const std::filesystem::path &scratch();
bool open_checkpoints();

}  // namespace bench
