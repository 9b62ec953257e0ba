#include "modules/control_line.h"

#include "modules/line_file.h"

namespace lum_linux {

line_status control_line::read() const {
  line_status status;
  status.file = line_.file.native();
  std::string text;
  status.code = read_line_file(line_.file, text);
  if (status.code != 0) return status;
  if (text == line_.on_value) status.is_on = true;
  if (text == line_.off_value) status.is_on = false;
  return status;
}

cerrno control_line::set(bool on) const {
  const cerrno code = write_line_file(line_.file, on ? line_.on_value : line_.off_value);
  if (code != 0) return code;
  return read().is_on == on ? module_ok : module_failing;
}

}  // namespace lum_linux
