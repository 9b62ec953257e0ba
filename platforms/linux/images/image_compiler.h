// Turns one parsed module description into bytes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "description/toml_table.h"
#include "images/image_places.h"
#include "lum_linux/image.h"

namespace lum_linux {

class image_compiler {
 public:
  explicit image_compiler(problem_list &problems) : problems_(problems) {}

  // Worth something only when no problem has come up.
  module_image compile(toml_table &table);

 private:
  // A byte that a key has set.
  struct origin {
    std::string key;
    uint32_t line;
  };

  void compile_identity(toml_table &table);
  void compile_oui(toml_table &table);
  void compile_firmware(toml_table &table);
  void compile_measurements(toml_table &table);
  void compile_flags(toml_table &table);
  void compile_sub_port(toml_table &table, uint32_t sub_port);
  void compile_readings(toml_table &table, const sub_port_places &places, const std::string &where);
  void compile_raw(toml_table &table);
  void compile_faults(toml_table &table);
  void finish_checksum();

  byte_place layout(uint32_t offset) const;
  // Two keys may set one byte only to the same value.
  void put(const std::string &key, uint32_t line, byte_place place, uint8_t value);
  void put_word(const std::string &key, uint32_t line, byte_place place, uint16_t value);
  void put_text(const std::string &key, uint32_t line, const text_place &place,
                std::string_view text);

  problem_list &problems_;
  module_image image_;
  bool has_new_map_ = false;
  std::map<std::size_t, origin> origins_;  // by position in the image
};

}  // namespace lum_linux
