// The attribute block of a controller: its first capabilities, and what is sent of it.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "payload_images.h"

namespace controller_attributes_test {

using namespace support;
using testing::Each;
using testing::ElementsAre;

namespace {

// ---- Capabilities of a new controller ----

const std::vector<member> new_presence = {
    {1673, 8, 0xC940014F8}, {1681, 8, 0x200002}, {1689, 3, 0x30000}, {282, 6, 0x800000000007}};

std::vector<member> sub_port_0_profile() {
  return joined({capabilities_at(0), new_presence, {{912, 8, 0xF00C000079}}});
}
std::vector<member> sub_port_1_profile() {
  return joined({capabilities_at(1), new_presence, {{912, 8, 0xF00E800079}}});
}

class capabilities : public testing::Test {
 protected:
  void SetUp() override { open_traces(); }
};

TEST_F(capabilities, of_sub_port_0) {
  EXPECT_THAT(differences(bytes_of(capabilities_of(0)), image(1696, sub_port_0_profile())),
              ElementsAre());
}

TEST_F(capabilities, of_sub_port_1) {
  EXPECT_THAT(differences(bytes_of(capabilities_of(1)), image(1696, sub_port_1_profile())),
              ElementsAre());
}

TEST_F(capabilities, of_sub_port_2_get_the_sub_port_0_profile) {
  EXPECT_EQ(bytes_of(capabilities_of(2)), image(1696, sub_port_0_profile()));
  EXPECT_EQ(bytes_of(capabilities_of(-1)), image(1696, sub_port_0_profile()));
  EXPECT_EQ(bytes_of(capabilities_of(INT32_MIN)), image(1696, sub_port_0_profile()));
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

TEST_F(capabilities, keep_presence_bits_of_the_other_words_too) {
  lum_controller_attrs attrs = filled_with(0);
  put_number(attrs.bytes, 912, 8, 2);
  put_number(attrs.bytes, 1681, 8, 1);
  put_number(attrs.bytes, 1689, 3, 1);
  lum_init_controller_capabilities(&attrs, 0);
  EXPECT_EQ(number_at(attrs.bytes, 912, 8), 0xF00C00007Bu);
  EXPECT_EQ(number_at(attrs.bytes, 1681, 8), 0x200003u);
  EXPECT_EQ(number_at(attrs.bytes, 1689, 3), 0x30001u);
}

TEST_F(capabilities, write_nothing_but_their_members) {
  lum_controller_attrs attrs = filled_with(0xEE);
  lum_init_controller_capabilities(&attrs, 1);
  for (const member &m : sub_port_1_profile()) {
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

constexpr sent_member presence_words[] = {{1673, 8}, {1681, 8}, {1689, 3},
                                          {282, 6},  {912, 8},  {420, 8}};
constexpr uint64_t filler = 0xEEEEEEEEEEEEEEEE;

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
  put_number(copy.bytes, 1681, 8, 1);
  put_number(copy.bytes, 1689, 3, 1);
  put_number(copy.bytes, 282, 6, 0x10);
  put_number(copy.bytes, 912, 8, 2);
  put_number(copy.bytes, 420, 8, 0x10);
  lum_controller_attrs_copy(&source, &copy);
  EXPECT_EQ(number_at(copy.bytes, 1673, 8), 0xFFE0000CB41032F8u);
  EXPECT_EQ(number_at(copy.bytes, 1681, 8), 0x200003u);
  EXPECT_EQ(number_at(copy.bytes, 1689, 3), 0x30001u);
  EXPECT_EQ(number_at(copy.bytes, 282, 6), 0x800000000017u);
  EXPECT_EQ(number_at(copy.bytes, 912, 8), 0xF00E8007FFu);
  EXPECT_EQ(number_at(copy.bytes, 420, 8), 0x1Fu);
}

TEST(attribute_block, copying_writes_nothing_but_its_members) {
  const lum_controller_attrs source = numbered_source();
  lum_controller_attrs copy = filled_with(0xEE);
  lum_controller_attrs_copy(&source, &copy);
  for (const sent_member &m : sent) put_number(copy.bytes, m.position, m.width, filler);
  for (const sent_member &m : presence_words) put_number(copy.bytes, m.position, m.width, filler);
  copy.bytes[480] = 0xEE;
  EXPECT_THAT(bytes_of(copy), Each(0xEE));
}

TEST(attribute_block, copying_does_not_take_presence_bits_from_the_source) {
  const lum_controller_attrs source = filled_with(0xFF);
  lum_controller_attrs copy = filled_with(0);
  lum_controller_attrs_copy(&source, &copy);
  EXPECT_EQ(number_at(copy.bytes, 1681, 8), 0x200002u);
  EXPECT_EQ(number_at(copy.bytes, 912, 8), 0xF00E8007FDu);
}

}  // namespace

}  // namespace controller_attributes_test
