#include "catalogue.h"

#include <fstream>
#include <sstream>

namespace support {
namespace {

std::vector<catalogue_entry> read_catalogue() {
  std::vector<catalogue_entry> entries;
  std::ifstream file(LUM_TRACE_CATALOGUE);
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string point;
    catalogue_entry entry = {};
    std::getline(fields, point, '\t');
    std::getline(fields, entry.area, '\t');
    std::getline(fields, entry.channel, '\t');
    std::getline(fields, entry.message);
    entry.point = static_cast<uint32_t>(std::stoul(point));
    entries.push_back(entry);
  }
  return entries;
}

}  // namespace

const std::vector<catalogue_entry> &trace_catalogue() {
  static const std::vector<catalogue_entry> entries = read_catalogue();
  return entries;
}

std::string as_written(const std::string &format) {
  std::string written;
  for (const char c : format) {
    switch (c) {
      case '\n':
        written += "\\n";
        break;
      case '\t':
        written += "\\t";
        break;
      case '"':
        written += "\\\"";
        break;
      case '\\':
        written += "\\\\";
        break;
      default:
        written += c;
    }
  }
  return written;
}

}  // namespace support
