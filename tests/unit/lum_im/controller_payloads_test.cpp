// The elements that travel to the interface manager, byte by byte.
#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

#include "payload_images.h"

namespace controller_payloads_test {

using namespace support;
using testing::ElementsAre;

namespace {

const std::vector<member> sent_presence = {{1673, 8, 0x20000CB41032F8}, {1681, 8, 0x200002},
                                           {1689, 3, 0x30000},          {282, 6, 0x800000000007},
                                           {912, 8, 0xF00E8007FD},      {420, 8, 0xF}};

// What an element carries of a capability block that stands at `at`: all of it but member 20.
void put_sent_capabilities(bytes &element, std::size_t at, uint32_t sub_port) {
  for (const member &m : joined({capabilities_at(sub_port), sent_presence})) {
    if (m.position == 20) continue;
    put_number(element, at + m.position, m.width, static_cast<uint64_t>(m.value));
  }
}

bytes create_element(uint32_t sub_port) {
  bytes element = image(3232, {{1, 1, 1},
                               {49, 1, 1},
                               {72, 4, 0x107},
                               {1880, 4, 48},
                               {1888, 1, 1},
                               {1889, 1, 1},
                               {1890, 1, 1},
                               {1891, 1, 1},
                               {1892, 1, 1},
                               {2896, 1, 1},
                               {2897, 1, 1},
                               {2898, 1, 1},
                               {2899, 1, 1},
                               {2900, 1, 1},
                               {2901, 1, 1},
                               {2903, 1, 1},
                               {2904, 1, 1},
                               {3056, 1, 1},
                               {3057, 2, 1}});
  put_sent_capabilities(element, 88, sub_port);
  return element;
}

class payloads : public running_library {};

TEST_F(payloads, create_element_of_each_sub_port) {
  auto *request = create_request({controller(0x30007, 0), controller(0x30007, 1)});
  lum_init_controller_capabilities(&request->entries[0].attrs, 0);
  lum_init_controller_capabilities(&request->entries[1].attrs, 1);
  const char *names[] = {"Ots0_3_0_7_0", "Ots0_3_0_7_1"};
  const uint16_t types[] = {188, 188};
  ASSERT_EQ(lum_controllers_create(request, names, types), 0u);
  ASSERT_EQ(im.batches.at(0).payload.size(), 2u * 3232u);
  EXPECT_THAT(differences(im.batches[0].element(0), create_element(0)), ElementsAre());
  EXPECT_THAT(differences(im.batches[0].element(1), create_element(1)), ElementsAre());
  free_request(request);
}

TEST_F(payloads, create_element_of_an_empty_entry_has_its_constants_and_presence_bits) {
  auto *request = create_request({lum_controller_id{}});
  const char *names[] = {nullptr};
  const uint16_t types[] = {0};
  ASSERT_EQ(lum_controllers_create(request, names, types), 0u);
  const bytes element = im.batches.at(0).element(0);
  EXPECT_EQ(element[1], 1);
  EXPECT_EQ(number_at(element, 72, 4), 0x107u);
  EXPECT_EQ(number_at(element, 88 + 4, 2), 0u);
  EXPECT_EQ(element[88 + 480], 1);
  EXPECT_EQ(number_at(element, 88 + 1673, 8), 0x20000CB41032F8u);
  free_request(request);
}

bytes update_of(lum_controller_update_request *request) {
  EXPECT_EQ(lum_controllers_update(request), 0u);
  const bytes element = im.batches.at(0).element(0);
  free_request(request);
  return element;
}

TEST_F(payloads, update_element_of_a_state) {
  uint32_t states[] = {4};
  auto *request = update_request({0x1001});
  request->states = states;
  request->state_change = 1;
  EXPECT_THAT(differences(update_of(request), image(1872, {{0, 1, 1}, {1, 1, 1}, {1768, 4, 3}})),
              ElementsAre());
}

TEST_F(payloads, update_element_of_state_0) {
  uint32_t states[] = {0};
  auto *request = update_request({0x1001});
  request->states = states;
  request->state_change = 1;
  EXPECT_THAT(differences(update_of(request), image(1872, {{1, 1, 1}, {1768, 4, 3}})),
              ElementsAre());
}

TEST_F(payloads, update_element_of_capabilities) {
  lum_controller_attrs attrs[] = {capabilities_of(1)};
  auto *request = update_request({0x1001});
  request->attrs = attrs;
  request->capability_change = 1;
  bytes expected = image(1872, {{1768, 4, 3}});
  put_sent_capabilities(expected, 8, 1);
  EXPECT_THAT(differences(update_of(request), expected), ElementsAre());
}

TEST_F(payloads, update_element_of_both) {
  uint32_t states[] = {1};
  lum_controller_attrs attrs[] = {capabilities_of(0)};
  auto *request = update_request({0x1001});
  request->states = states;
  request->attrs = attrs;
  request->state_change = 1;
  request->capability_change = 1;
  bytes expected = image(1872, {{0, 1, 1}, {1, 1, 1}, {1768, 4, 3}});
  put_sent_capabilities(expected, 8, 0);
  EXPECT_THAT(differences(update_of(request), expected), ElementsAre());
}

TEST_F(payloads, update_with_both_flags_clear_still_sends_elements_carrying_only_the_3_at_1768) {
  auto *request = update_request({0x1001, 0x1002});
  EXPECT_EQ(lum_controllers_update(request), 0u);
  const bytes expected = image(1872, {{1768, 4, 3}});
  ASSERT_EQ(im.batches.at(0).payload.size(), 2u * 1872u);
  EXPECT_EQ(im.batches[0].element(0), expected);
  EXPECT_EQ(im.batches[0].element(1), expected);
  free_request(request);
}

TEST_F(payloads, each_update_element_carries_its_own_state_and_attributes) {
  uint32_t states[] = {0, 7};
  lum_controller_attrs attrs[] = {capabilities_of(0), capabilities_of(1)};
  auto *request = update_request({0x1001, 0x1002});
  request->states = states;
  request->attrs = attrs;
  request->state_change = 1;
  request->capability_change = 1;
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_EQ(im.batches.at(0).element(0)[0], 0);
  EXPECT_EQ(im.batches[0].element(1)[0], 1);
  EXPECT_EQ(number_at(im.batches[0].element(0), 8 + 838, 2), 30u);
  EXPECT_EQ(number_at(im.batches[0].element(1), 8 + 838, 2), 70u);
  free_request(request);
}

TEST_F(payloads, delete_elements) {
  add_created_port(0x30007, 0x1001, 0x1002);
  auto *request = delete_request({0x1001, 0x1002});
  const uint16_t types[] = {188, 188};
  ASSERT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_THAT(im.batches.at(0).payload, ElementsAre(1, 0, 1, 1, 0, 1));
  free_request(request);
}

}  // namespace

}  // namespace controller_payloads_test
