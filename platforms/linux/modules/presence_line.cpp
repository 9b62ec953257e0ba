#include "modules/presence_line.h"

#include <utility>

#include "modules/line_file.h"

namespace lum_linux {

presence_line::presence_line(std::filesystem::path file, std::string value)
    : file_(std::move(file)), value_(std::move(value)) {}

presence_reading presence_line::read() const {
  std::string text;
  const cerrno code = read_line_file(file_, text);
  return {code, code == 0 && text == value_};
}

}  // namespace lum_linux
