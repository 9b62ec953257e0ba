// What tests of checkpoint records have in common.
#pragma once

#include <cstring>
#include <string_view>
#include <vector>

#include "one_port.h"

namespace support {

inline constexpr uint64_t chkpt_table = 0xC0DE;

// A record of an earlier process: every configuration word is different.
inline lum_chkpt_record earlier_record(uint32_t key, uint32_t seed = 0x100) {
  lum_chkpt_record record = {};
  record.created = 1;
  record.key = key;
  record.chkpt_id = 0x501;
  for (std::size_t at = 16; at < 96; at += 4) {
    put_word<uint32_t>(record, at, seed + static_cast<uint32_t>(at));
  }
  return record;
}

// An entry in the service's table whose data has another size.
inline void survive_with_size(uint32_t key, uint32_t size) {
  const std::vector<uint8_t> data(size, 0x77);
  uint64_t id = 0;
  ASSERT_EQ(chkpt_create(chkpt_table, key, &id), 0u);
  ASSERT_EQ(chkpt_save(chkpt_table, id, data.data(), size), 0u);
  clear_record();
}

// The calls of the service that concern records.
inline const std::initializer_list<std::string_view> record_calls = {
    "chkpt_mapkey", "chkpt_create",        "chkpt_get",          "chkpt_save",
    "chkpt_delete", "chkpt_iterate_start", "chkpt_iterate_next", "chkpt_iterate_end"};

class chkpt : public one_port {
 protected:
  static lum_chkpt_record &mirror() { return port().chkpt; }
  static bool mirror_is_clear() {
    const lum_chkpt_record clear = {};
    return std::memcmp(&mirror(), &clear, sizeof clear) == 0;
  }
  static std::vector<trace_line> lines() { return traces_of("lum_chkpt"); }
  static void expect_nothing_to_create() {
    clear_record();
    EXPECT_EQ(lum_chkpt_create(&port()), 0u);
    EXPECT_THAT(lines(), testing::ElementsAre(info(233,
                                                   "chkpt_id 0x501 for 0x30107 already exist, no "
                                                   "need to create\n")));
    EXPECT_THAT(calls(record_calls), testing::IsEmpty());
  }
  static void expect_configuration_of(const lum_chkpt_record &record) {
    EXPECT_EQ(std::memcmp(port().port_cfg, reinterpret_cast<const uint8_t *>(&record) + 16, 80), 0);
  }
};

}  // namespace support
