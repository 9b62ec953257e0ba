// The bytes that travel to the interface manager, member by member.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "controllers.h"

using namespace support;
using testing::Each;
using testing::ElementsAre;

namespace {

using bytes = std::vector<uint8_t>;

bytes bytes_of(const lum_controller_attrs &attrs) {
  return {std::begin(attrs.bytes), std::end(attrs.bytes)};
}

lum_controller_attrs filled_with(uint8_t filler) {
  lum_controller_attrs attrs;
  std::fill(std::begin(attrs.bytes), std::end(attrs.bytes), filler);
  return attrs;
}

lum_controller_attrs capabilities_of(int32_t sub_port) {
  lum_controller_attrs attrs = filled_with(0);
  lum_init_controller_capabilities(&attrs, sub_port);
  return attrs;
}

struct member {
  std::size_t position;
  std::size_t width;
  int64_t value;
};

bytes image(std::size_t size, const std::vector<member> &members) {
  bytes image(size);
  for (const member &m : members) {
    put_number(image, m.position, m.width, static_cast<uint64_t>(m.value));
  }
  return image;
}

// Where two images differ, to read in a failure.
std::vector<std::string> differences(const bytes &seen, const bytes &expected) {
  std::vector<std::string> found;
  if (seen.size() != expected.size()) return {"size " + std::to_string(seen.size())};
  for (std::size_t i = 0; i < seen.size(); ++i) {
    if (seen[i] == expected[i]) continue;
    found.push_back(std::to_string(i) + ": " + std::to_string(seen[i]) + " instead of " +
                    std::to_string(expected[i]));
  }
  return found;
}

// ---- Capabilities of a new controller ----

const std::vector<member> sub_port_0_profile = {
    {4, 2, -300},
    {6, 2, 170},
    {8, 2, -300},
    {10, 2, -50},
    {12, 2, 190},
    {20, 4, 1},
    {25, 1, 1},
    {68, 1, 1},
    {70, 2, 170},
    {92, 1, 1},
    {96, 2, -50},
    {98, 2, 190},
    {156, 1, 1},
    {160, 4, 2},
    {164, 4, 12},
    {168, 1, 1},
    {281, 1, 1},
    {360, 4, 0},
    {480, 1, 1},
    {828, 4, 1},
    {838, 2, 30},
    {840, 2, 250},
    {842, 2, 200},
    {844, 1, 1},
    {889, 1, 0},
    {890, 1, 1},
    {904, 2, 10},
    {906, 2, 170},
    {908, 2, 80},
    {910, 1, 1},
    {1445, 1, 1},
    {1446, 1, 1},
    {912, 8, 0xF00C000079},
    {1673, 8, 0xC940014F8},
    {1681, 8, 0x200002},
    {1689, 3, 0x30000},
    {282, 6, 0x800000000007},
};

const std::vector<member> sub_port_1_profile = {
    {4, 2, -300},
    {6, 2, 170},
    {8, 2, -300},
    {10, 2, -50},
    {12, 2, 190},
    {20, 4, 1},
    {25, 1, 1},
    {68, 1, 1},
    {70, 2, 170},
    {92, 1, 1},
    {96, 2, -50},
    {98, 2, 190},
    {156, 1, 1},
    {160, 4, 2},
    {164, 4, 12},
    {168, 1, 1},
    {281, 1, 1},
    {360, 4, 0},
    {480, 1, 1},
    {828, 4, 1},
    {838, 2, 70},
    {840, 2, 250},
    {842, 2, 210},
    {844, 1, 1},
    {880, 4, 1},
    {888, 1, 1},
    {889, 1, 0},
    {890, 1, 1},
    {904, 2, 0},
    {906, 2, 170},
    {908, 2, 80},
    {910, 1, 1},
    {1445, 1, 1},
    {1446, 1, 1},
    {912, 8, 0xF00E800079},
    {1673, 8, 0xC940014F8},
    {1681, 8, 0x200002},
    {1689, 3, 0x30000},
    {282, 6, 0x800000000007},
};

class capabilities : public testing::Test {
 protected:
  void SetUp() override { open_traces(); }
};

TEST_F(capabilities, of_sub_port_0) {
  EXPECT_THAT(differences(bytes_of(capabilities_of(0)), image(1696, sub_port_0_profile)),
              ElementsAre());
}

TEST_F(capabilities, of_sub_port_1) {
  EXPECT_THAT(differences(bytes_of(capabilities_of(1)), image(1696, sub_port_1_profile)),
              ElementsAre());
}

TEST_F(capabilities, of_sub_port_2_get_the_sub_port_0_profile) {
  EXPECT_EQ(bytes_of(capabilities_of(2)), image(1696, sub_port_0_profile));
  EXPECT_EQ(bytes_of(capabilities_of(-1)), image(1696, sub_port_0_profile));
  EXPECT_EQ(bytes_of(capabilities_of(INT32_MIN)), image(1696, sub_port_0_profile));
}

TEST_F(capabilities, are_traced_by_their_beginning_only) {
  capabilities_of(0);
  EXPECT_THAT(traces(), ElementsAre(area{"lum_im"}.says("", "entry ")));
}

TEST_F(capabilities, of_sub_port_0_leave_the_members_of_sub_port_1_as_they_are) {
  lum_controller_attrs attrs = filled_with(0xEE);
  lum_init_controller_capabilities(&attrs, 0);
  EXPECT_EQ(number_at(attrs.bytes, 880, 4), 0xEEEEEEEEu);
  EXPECT_EQ(attrs.bytes[888], 0xEE);
  EXPECT_EQ(attrs.bytes[889], 0);
  lum_init_controller_capabilities(&attrs, 1);
  EXPECT_EQ(number_at(attrs.bytes, 880, 4), 1u);
  EXPECT_EQ(attrs.bytes[888], 1);
}

TEST_F(capabilities, keep_presence_bits_that_are_there) {
  lum_controller_attrs attrs = filled_with(0);
  put_number(attrs.bytes, 1673, 8, 0x8000000000000001);
  put_number(attrs.bytes, 282, 6, 0x10);
  lum_init_controller_capabilities(&attrs, 0);
  EXPECT_EQ(number_at(attrs.bytes, 1673, 8), 0x8000000C940014F9u);
  EXPECT_EQ(number_at(attrs.bytes, 282, 6), 0x800000000017u);
  EXPECT_EQ(number_at(attrs.bytes, 420, 8), 0u);
}

TEST_F(capabilities, write_nothing_but_their_members) {
  lum_controller_attrs attrs = filled_with(0xEE);
  lum_init_controller_capabilities(&attrs, 1);
  for (const member &m : sub_port_1_profile) {
    put_number(attrs.bytes, m.position, m.width, 0xEEEEEEEEEEEEEEEE);
  }
  EXPECT_THAT(bytes_of(attrs), Each(0xEE));
}

// ---- Clearing and copying a block ----

TEST(attribute_block, clearing_keeps_the_upper_ten_bits_of_the_word_at_1673) {
  lum_controller_attrs attrs = filled_with(0xFF);
  lum_controller_attrs_clear(&attrs);
  EXPECT_THAT(differences(bytes_of(attrs), image(1696, {{1679, 1, 0xC0}, {1680, 1, 0xFF}})),
              ElementsAre());
}

TEST(attribute_block, clearing_a_clear_block_changes_nothing) {
  lum_controller_attrs attrs = filled_with(0);
  lum_controller_attrs_clear(&attrs);
  EXPECT_THAT(bytes_of(attrs), Each(0));
}

// A source in which every byte says where it stands.
lum_controller_attrs numbered_source() {
  lum_controller_attrs attrs;
  for (std::size_t i = 0; i < std::size(attrs.bytes); ++i) {
    attrs.bytes[i] = static_cast<uint8_t>(i % 251 + 1);
  }
  return attrs;
}

struct sent_member {
  std::size_t position;
  std::size_t width;
};
constexpr sent_member sent[] = {
    {92, 1},  {360, 4}, {160, 4},  {168, 1}, {164, 4}, {281, 1}, {70, 2},  {8, 2},   {6, 2},
    {4, 2},   {25, 1},  {1446, 1}, {96, 2},  {98, 2},  {10, 2},  {12, 2},  {68, 1},  {1445, 1},
    {828, 4}, {836, 2}, {842, 2},  {840, 2}, {838, 2}, {844, 1}, {850, 2}, {848, 2}, {846, 2},
    {852, 4}, {889, 1}, {890, 1},  {880, 4}, {888, 1}, {910, 1}, {904, 2}, {906, 2}, {908, 2},
    {416, 1}, {417, 1}, {418, 1},  {419, 1}, {16, 4},  {26, 2},  {72, 4},  {52, 4},  {156, 1},
};

TEST(attribute_block, copying_takes_the_listed_members_and_their_presence_bits) {
  const lum_controller_attrs source = numbered_source();
  lum_controller_attrs copy = filled_with(0);
  lum_controller_attrs_copy(&source, &copy);
  bytes expected = image(1696, {{480, 1, 1},
                                {1673, 8, 0x20000CB41032F8},
                                {1681, 8, 0x200002},
                                {1689, 3, 0x30000},
                                {282, 6, 0x800000000007},
                                {912, 8, 0xF00E8007FD},
                                {420, 8, 0xF}});
  for (const sent_member &m : sent) {
    std::copy_n(source.bytes + m.position, m.width,
                expected.begin() + static_cast<std::ptrdiff_t>(m.position));
  }
  EXPECT_THAT(differences(bytes_of(copy), expected), ElementsAre());
}

TEST(attribute_block, member_480_is_not_copied_but_set_to_1) {
  lum_controller_attrs source = filled_with(0);
  source.bytes[480] = 9;
  lum_controller_attrs copy = filled_with(0);
  lum_controller_attrs_copy(&source, &copy);
  EXPECT_EQ(copy.bytes[480], 1);
}

TEST(attribute_block, member_20_is_not_sent) {
  const lum_controller_attrs source = capabilities_of(0);
  lum_controller_attrs copy = filled_with(0);
  lum_controller_attrs_copy(&source, &copy);
  EXPECT_EQ(number_at(source.bytes, 20, 4), 1u);
  EXPECT_EQ(number_at(copy.bytes, 20, 4), 0u);
}

TEST(attribute_block, copying_keeps_presence_bits_of_the_destination) {
  const lum_controller_attrs source = filled_with(0);
  lum_controller_attrs copy = filled_with(0);
  put_number(copy.bytes, 1673, 8, 0xFFC0000000000000);
  lum_controller_attrs_copy(&source, &copy);
  EXPECT_EQ(number_at(copy.bytes, 1673, 8), 0xFFE0000CB41032F8u);
}

TEST(attribute_block, copying_does_not_take_presence_bits_from_the_source) {
  const lum_controller_attrs source = filled_with(0xFF);
  lum_controller_attrs copy = filled_with(0);
  lum_controller_attrs_copy(&source, &copy);
  EXPECT_EQ(number_at(copy.bytes, 1681, 8), 0x200002u);
  EXPECT_EQ(number_at(copy.bytes, 912, 8), 0xF00E8007FDu);
}

// ---- Elements ----

// What an element carries of a capability block that stands at `at`.
void put_sent_capabilities(bytes &element, std::size_t at, uint32_t sub_port) {
  const std::vector<member> members = {
      {4, 2, -300},
      {6, 2, 170},
      {8, 2, -300},
      {10, 2, -50},
      {12, 2, 190},
      {25, 1, 1},
      {68, 1, 1},
      {70, 2, 170},
      {92, 1, 1},
      {96, 2, -50},
      {98, 2, 190},
      {156, 1, 1},
      {160, 4, 2},
      {164, 4, 12},
      {168, 1, 1},
      {281, 1, 1},
      {480, 1, 1},
      {828, 4, 1},
      {838, 2, sub_port == 1 ? 70 : 30},
      {840, 2, 250},
      {842, 2, sub_port == 1 ? 210 : 200},
      {844, 1, 1},
      {880, 4, sub_port == 1 ? 1 : 0},
      {888, 1, sub_port == 1 ? 1 : 0},
      {890, 1, 1},
      {904, 2, sub_port == 1 ? 0 : 10},
      {906, 2, 170},
      {908, 2, 80},
      {910, 1, 1},
      {1445, 1, 1},
      {1446, 1, 1},
      {1673, 8, 0x20000CB41032F8},
      {1681, 8, 0x200002},
      {1689, 3, 0x30000},
      {282, 6, 0x800000000007},
      {912, 8, 0xF00E8007FD},
      {420, 8, 0xF},
  };
  for (const member &m : members) {
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
