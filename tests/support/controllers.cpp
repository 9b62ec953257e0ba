#include "controllers.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace support {
namespace {

template <typename Element>
Element *zeroed(std::size_t count) {
  return static_cast<Element *>(std::calloc(count, sizeof(Element)));
}

uint32_t *copy_of(std::initializer_list<uint32_t> values) {
  auto *copy = zeroed<uint32_t>(values.size());
  std::copy(values.begin(), values.end(), copy);
  return copy;
}

}  // namespace

lum_controller_id controller(uint32_t rsip, uint32_t sub_port, uint32_t ifhandle) {
  lum_controller_id id = {};
  id.valid = 1;
  id.rack = static_cast<uint8_t>(rsip >> 24);
  id.slot = static_cast<uint8_t>(rsip >> 16);
  id.instance = static_cast<uint8_t>(rsip >> 8);
  id.port = static_cast<uint8_t>(rsip);
  id.sub_port = static_cast<uint8_t>(sub_port);
  id.ifhandle = ifhandle;
  return id;
}

lum_controller_create_request *create_request(std::initializer_list<lum_controller_id> ids) {
  auto *request = zeroed<lum_controller_create_request>(1);
  request->intf_type = 188;
  request->count = static_cast<int32_t>(ids.size());
  request->entries = zeroed<lum_controller_create_entry>(ids.size());
  for (std::size_t i = 0; i < ids.size(); ++i) request->entries[i].id = ids.begin()[i];
  return request;
}

lum_controller_update_request *update_request(std::initializer_list<uint32_t> ifhandles) {
  auto *request = zeroed<lum_controller_update_request>(1);
  request->count = static_cast<int32_t>(ifhandles.size());
  request->ifhandles = copy_of(ifhandles);
  return request;
}

lum_controller_delete_request *delete_request(std::initializer_list<uint32_t> ifhandles) {
  auto *request = zeroed<lum_controller_delete_request>(1);
  request->count = static_cast<int32_t>(ifhandles.size());
  request->ifhandles = copy_of(ifhandles);
  return request;
}

void free_request(lum_controller_create_request *request) {
  std::free(request->entries);
  std::free(request);
}

void free_request(lum_controller_update_request *request) {
  std::free(request->ifhandles);
  std::free(request);
}

void free_request(lum_controller_delete_request *request) {
  std::free(request->ifhandles);
  std::free(request);
}

lum_sub_port_intf &interface_at(uint32_t rsip, uint32_t sub_port) {
  return data_at(rsip).sub_port[sub_port];
}

lum_port_node_info &add_created_port(uint32_t rsip, uint32_t first_handle, uint32_t second_handle) {
  lum_port_node_info &node = add_port(rsip);
  node.data.sub_port[0].ifhandle = first_handle;
  node.data.sub_port[0].created = 1;
  node.data.sub_port[1].ifhandle = second_handle;
  node.data.sub_port[1].created = 1;
  return node;
}

std::vector<lum_port_props> props_of(std::initializer_list<uint32_t> rsips) {
  std::vector<lum_port_props> props;
  for (const uint32_t rsip : rsips) {
    lum_port_props each = {};
    each.rsip = rsip;
    each.port_index = rsip & 0xFF;
    each.port_handle = handle_for(rsip);
    props.push_back(each);
  }
  return props;
}

uint64_t number_at(std::span<const uint8_t> bytes, std::size_t position, std::size_t width) {
  uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value |= uint64_t{bytes[position + i]} << 8 * i;
  return value;
}

void put_number(std::span<uint8_t> bytes, std::size_t position, std::size_t width, uint64_t value) {
  for (std::size_t i = 0; i < width; ++i)
    bytes[position + i] = static_cast<uint8_t>(value >> 8 * i);
}

std::string address(const void *pointer) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", pointer);
  return text;
}

void wait_for_block(const std::string &function) {
  const std::string mark = "ptd_set_mutex_block(\"" + function + '"';
  for (;;) {
    for (const std::string &call : calls({"ptd_set_mutex_block"})) {
      if (call.rfind(mark, 0) == 0) return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void created_ports::SetUp() {
  running_library::SetUp();
  modules.at(3, 0, 7);
  modules.at(3, 0, 8);
  support::create_ports(3, 0, {7, 8});
  clear_record();
}

}  // namespace support
