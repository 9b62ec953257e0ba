// The keys of a node's description that say where its API is offered over HTTP.
#pragma once

#include <filesystem>

#include "description/toml_table.h"
#include "lum_linux/node_description.h"

namespace lum_linux {

// Reads them into `node`. Relative paths start at `folder`.
void read_http_keys(toml_table &table, const std::filesystem::path &folder, problem_list &problems,
                    node_description &node);

}  // namespace lum_linux
