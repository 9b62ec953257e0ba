// The settings of a node as a TOML file: written from what the driver tells, and read back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "api/json.h"

namespace lumctl {

// One sub-port's settings in a file.
struct listed_settings {
  unsigned line = 0;
  std::string port;                  // as the file names it
  std::optional<unsigned> sub_port;  // unless the name says it
  json settings;                     // as the driver takes them
};

struct settings_file {
  std::vector<listed_settings> listed;
  std::vector<std::string> problems;  // "FILE:LINE: what is wrong"; with any, nothing is listed
};

settings_file read_settings_file(const std::string &file);

struct exported_settings {
  std::string text;
  std::vector<std::string> missing;  // what is not in it because it is not known
  std::vector<std::string> remarks;  // what is in it and is saved otherwise
};

// Of the driver's answer: what is in force, or saved where a port does not exist.
exported_settings export_settings(const json &answer);

}  // namespace lumctl
