// One port with a module and both interface handles, and short forms for what its bus saw.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "library.h"

namespace support {

inline constexpr uint32_t handle_0 = 0x801;  // sub-port 0
inline constexpr uint32_t handle_1 = 0x802;

// A second name for sub-port 0, which only the client knows: by the rule of handles it means
// sub-port 1.
inline constexpr uint32_t foreign_handle = 0x1F00;

// Slot 3, instance 1, port 7: Ots0_3_1_7_0 and Ots0_3_1_7_1.
class one_port : public running_library {
 protected:
  static constexpr uint32_t rsip = 0x30107;

  void SetUp() override {
    running_library::SetUp();
    add_port_with_handles(7, handle_0, handle_1);
    client.set_name(foreign_handle, "Ots0_3_1_7_0");
    clear_record();
  }
  static void add_port_with_handles(uint32_t number, uint32_t first, uint32_t second) {
    lum_port_node_info &node = add_polled_port(rsip_at(3, 1, number));
    ASSERT_EQ(lum_update_ifhandle(node.data.sub_port[0].ifname, first), 0u);
    ASSERT_EQ(lum_update_ifhandle(node.data.sub_port[1].ifname, second), 0u);
  }
  static lum_port_data &port() { return data_at(rsip); }
  static module_memory &module() { return modules.at(3, 1, 7); }
};

// The transfers of that port's module, as the record shows them.
inline std::string wrote(uint32_t page, uint32_t offset, uint32_t value) {
  return "i2c_write_byte(3, 1, 7, " + shown(page) + ", " + shown(offset) + ", " + shown(value) +
         ")";
}
inline std::string read_block(uint32_t page, uint32_t offset, int32_t length) {
  return "i2c_read_block(3, 1, 7, " + shown(page) + ", " + shown(offset) + ", " + shown(length) +
         ")";
}
inline std::vector<std::string> transfers() {
  return calls({"i2c_read_byte", "i2c_read_block", "i2c_write_byte"});
}

// The traces of one source area; those of every single module write are left out.
inline std::vector<trace_line> traces_of(std::string_view area) {
  std::vector<trace_line> found;
  for (const trace_line &line : traces()) {
    if (line.file == area && line.text.rfind("Write page", 0) != 0) found.push_back(line);
  }
  return found;
}

// Little-endian words of byte records, at positions given by hand.
template <typename Word, typename Record>
Word word_at(const Record &record, std::size_t position) {
  Word word;
  std::memcpy(&word, reinterpret_cast<const uint8_t *>(&record) + position, sizeof word);
  return word;
}
template <typename Word, typename Record>
void put_word(Record &record, std::size_t position, Word word) {
  std::memcpy(reinterpret_cast<uint8_t *>(&record) + position, &word, sizeof word);
}

}  // namespace support
