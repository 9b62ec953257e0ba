// Requests, replies and ports with controllers, in few words.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "library.h"

namespace support {

// Whole trace lines of one area.
struct area {
  std::string name;
  line_matcher says(std::string letters, std::string text) const {
    return info(std::move(text)).of(name).signed_as(std::move(letters));
  }
  line_matcher complains(std::string letters, std::string text) const {
    return error(std::move(text)).of(name).signed_as(std::move(letters));
  }
};

lum_controller_id controller(uint32_t rsip, uint32_t sub_port, uint32_t ifhandle = 0);

// Requests as the library makes them; the done-handlers free them, or free_request.
lum_controller_create_request *create_request(std::initializer_list<lum_controller_id> ids);
lum_controller_update_request *update_request(std::initializer_list<uint32_t> ifhandles);
lum_controller_delete_request *delete_request(std::initializer_list<uint32_t> ifhandles);
void free_request(lum_controller_create_request *request);
void free_request(lum_controller_update_request *request);
void free_request(lum_controller_delete_request *request);

// A port whose two controllers exist, as far as its node says.
lum_port_node_info &add_created_port(uint32_t rsip, uint32_t first_handle, uint32_t second_handle);
lum_sub_port_intf &interface_at(uint32_t rsip, uint32_t sub_port);

// Properties of ports of one slot and instance, for lum_create_ports.
std::vector<lum_port_props> props_of(std::initializer_list<uint32_t> rsips);

// The little-endian number of `width` bytes.
uint64_t number_at(std::span<const uint8_t> bytes, std::size_t position, std::size_t width);
void put_number(std::span<uint8_t> bytes, std::size_t position, std::size_t width, uint64_t value);

// A pointer as %p shows it.
std::string address(const void *pointer);

template <typename Work>
void on_another_thread(Work work) {
  std::thread(work).join();
}

// Waits until a thread has told the deadlock monitor that it is blocked.
void wait_for_block(const std::string &function);

// A running library with ports 7 and 8 on slot 3, created on the whole road: handles 0x1001 to
// 0x1004. The modules are there.
class created_ports : public running_library {
 protected:
  static constexpr uint32_t first = 0x30007;
  static constexpr uint32_t second = 0x30008;
  void SetUp() override;
};

}  // namespace support
