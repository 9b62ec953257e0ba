// The callbacks that reach modules: i2c_read_byte, i2c_read_block, i2c_write_byte and
// fw_upgrade_status.
#include <array>
#include <thread>

#include "check.h"

namespace conformance {
namespace {

constexpr uint32_t half = 128;  // bytes of the lower page, and of a page's upper half
using page_half = std::array<uint8_t, half>;

void require_reads() {
  start_platform();
  require(callbacks().i2c_read_byte != nullptr && callbacks().i2c_read_block != nullptr,
          "there is no callback that reads a module");
}

cerrno read_half(uint32_t page, uint32_t offset, page_half &bytes) {
  const auto [slot, instance, port] = port_cage();
  return callbacks().i2c_read_block(slot, instance, port, page, offset, half, bytes.data());
}

page_half read_identity() {
  page_half bytes = {};
  const cerrno rc = read_half(0, half, bytes);
  require(rc == 0, "the module's identity cannot be read: %u", rc);
  return bytes;
}

uint8_t read_byte(uint32_t page, uint32_t offset) {
  const auto [slot, instance, port] = port_cage();
  uint8_t value = 0;
  const cerrno rc = callbacks().i2c_read_byte(slot, instance, port, page, offset, &value);
  require(rc == 0, "byte %u of page %u cannot be read: %u", offset, page, rc);
  return value;
}

void a_block_is_its_bytes() {
  require_reads();
  const page_half identity = read_identity();
  for (uint32_t i = 0; i < half; ++i) {
    const uint8_t byte = read_byte(0, half + i);
    require(byte == identity[i], "byte %u is 0x%02x in a block and 0x%02x alone", half + i,
            identity[i], byte);
  }
  std::array<uint8_t, 4> part = {};
  const auto [slot, instance, port] = port_cage();
  const cerrno rc = callbacks().i2c_read_block(slot, instance, port, 0, 129, 3, part.data());
  require(rc == 0, "a block of three bytes cannot be read: %u", rc);
  require(std::equal(part.begin(), part.begin() + 3, identity.begin() + 1),
          "a block of three bytes from 129 has other bytes");
  require(part[3] == 0, "a block of three bytes has four");
}

void the_lower_page_has_no_number() {
  require_reads();
  page_half bytes = {};
  require(read_half(0, 0, bytes) == 0, "the lower page cannot be read");
  require(bytes[0] == read_byte(0, 0), "the lower page begins with another byte alone");
  require(bytes[0] == read_byte(1, 0), "the lower page of page 1 is another one");
}

// Two threads of the library may use one module at once; whoever selects a page has to keep the
// other out until the bytes are read.
void two_pages_are_read_at_once() {
  require_reads();
  const page_half identity = read_identity();
  std::atomic<bool> ended{false};
  std::thread other([&ended] {
    page_half bytes;
    while (!ended) {
      for (const uint32_t page : {1u, 2u, 3u}) read_half(page, half, bytes);
    }
  });
  uint32_t wrong = 0;
  for (int round = 0; round < 100; ++round) {
    page_half bytes = {};
    if (read_half(0, half, bytes) != 0 || bytes != identity) ++wrong;
  }
  ended = true;
  other.join();
  require(wrong == 0, "%u of 100 reads were wrong while another thread read other pages", wrong);
}

void an_empty_cage_is_told() {
  require_reads();
  if (platform().empty_port == LUM_CONFORMANCE_NONE) throw no_case{"there is no empty cage"};
  const auto [slot, instance, port] = port_cage();
  const uint32_t empty = platform().empty_port;
  page_half bytes = {};
  uint8_t value = 0;
  require(callbacks().i2c_read_byte(slot, instance, empty, 0, 0, &value) != 0,
          "a byte is read from the empty cage %u", empty);
  require(callbacks().i2c_read_block(slot, instance, empty, 0, half, half, bytes.data()) != 0,
          "a block is read from the empty cage %u", empty);
}

void a_byte_stays_written() {
  require_reads();
  if (platform().writable_page == LUM_CONFORMANCE_NONE || callbacks().i2c_write_byte == nullptr) {
    throw no_case{"there is no byte to write"};
  }
  const auto [slot, instance, port] = port_cage();
  const uint32_t page = platform().writable_page, offset = platform().writable_offset;
  const uint8_t before = read_byte(page, offset);
  for (const uint8_t value : {static_cast<uint8_t>(before ^ 0x5A), before}) {
    const cerrno rc = callbacks().i2c_write_byte(slot, instance, port, page, offset, value);
    require(rc == 0, "byte %u of page %u cannot be written: %u", offset, page, rc);
    const uint8_t seen = read_byte(page, offset);
    require(seen == value, "byte %u of page %u is 0x%02x after 0x%02x was written", offset, page,
            seen, value);
  }
}

void an_upgrade_is_told() {
  start_platform();
  require(callbacks().fw_upgrade_status != nullptr, "fw_upgrade_status is null");
  uint32_t status = 0;
  callbacks().fw_upgrade_status(platform().port.rsip, &status);
  require(status == 0, "an upgrade is told that nobody began: %u", status);
}

}  // namespace

std::vector<check> module_checks() {
  return {{"modules.give_the_same_bytes_in_blocks", a_block_is_its_bytes},
          {"modules.have_one_lower_page", the_lower_page_has_no_number},
          {"modules.serve_two_pages_at_once", two_pages_are_read_at_once},
          {"modules.fail_where_there_is_none", an_empty_cage_is_told},
          {"modules.keep_what_is_written", a_byte_stays_written},
          {"modules.tell_of_upgrades", an_upgrade_is_told}};
}

}  // namespace conformance
