// Module images: a module's whole memory as bytes, made from a readable description.
// docs/module-images.md lists every key and where it goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lum_linux/module_faults.h"
#include "lum_linux/node_description.h"
#include "lum_linux/reading_motion.h"

namespace lum_linux {

constexpr uint32_t module_page_size = 128;
constexpr uint32_t module_max_pages = 256;

// Where a byte stands in an `eeprom` file: the lower page at 0, upper page N at 128 * (N + 1).
constexpr std::size_t eeprom_position(uint32_t page, uint32_t offset) {
  return offset < module_page_size ? offset : std::size_t{module_page_size} * page + offset;
}

struct module_image {
  std::vector<uint8_t> bytes;                // as in an `eeprom` file
  fault_script faults;                       // what a simulated module starts out with
  std::vector<reading_motion> motions = {};  // how its readings move; at most one a word
};

// Holds the image when there are no problems, and nothing but the problems otherwise.
struct image_result {
  std::optional<module_image> image;
  std::vector<description_problem> problems;  // in the order of their lines
};

// Reads and compiles a description. Never throws for bad input.
image_result read_module_image(const std::filesystem::path &description);

// As above for a description held in memory; `file` names it in problems.
image_result compile_module_image(std::string_view text, const std::filesystem::path &file);

// Writes an image as an `eeprom` file in one step: who reads the file sees the old bytes or the new
// ones. Returns false with `error` saying what failed.
bool write_module_image(const module_image &image, const std::filesystem::path &file,
                        std::string &error);

// The check byte of page 0 (byte 222), the sum of bytes 128 to 221; 0 when the image has no page 0.
uint8_t page_0_checksum(const module_image &image);

}  // namespace lum_linux
