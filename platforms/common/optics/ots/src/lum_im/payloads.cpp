// Byte by byte: the attribute block and the elements built around it. The records belong to the
// platform's interface definitions; the tables name the members that this library writes.
#include "lum_im/payloads.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

#include "base/bytes.h"
#include "base/trace.h"

using namespace lum;

static constexpr char trace_area[] = "lum_im";

namespace {

// Presence words of the attribute block: position and width in bytes.
struct presence_word {
  std::size_t position;
  std::size_t width;
};
constexpr presence_word main_1 = {1673, 8};
constexpr presence_word main_2 = {1681, 8};
constexpr presence_word main_3 = {1689, 3};
constexpr presence_word group_282 = {282, 6};
constexpr presence_word group_912 = {912, 8};
constexpr presence_word group_420 = {420, 8};

struct presence {
  presence_word word;
  std::uint64_t bits;
};

void mark(std::span<std::uint8_t> attrs, std::span<const presence> marks) {
  for (const presence &p : marks) or_bits(attrs, p.word.position, p.word.width, p.bits);
}

void put_number(std::span<std::uint8_t> record, std::size_t position, std::size_t width,
                std::int32_t value) {
  for (std::size_t i = 0; i < width; ++i) {
    record[position + i] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(value) >> (8 * i));
  }
}

// Capabilities of a new controller. Sub-port 0 leaves the members of sub-port 1 alone as they are.
struct capability {
  std::uint16_t position;
  std::uint8_t width;
  std::int32_t sub_port_0;
  std::int32_t sub_port_1;
  bool sub_port_1_only = false;
};
constexpr capability capabilities[] = {
    {4, 2, -300, -300},   {6, 2, 170, 170},     {8, 2, -300, -300}, {10, 2, -50, -50},
    {12, 2, 190, 190},    {20, 4, 1, 1},        {25, 1, 1, 1},      {68, 1, 1, 1},
    {70, 2, 170, 170},    {92, 1, 1, 1},        {96, 2, -50, -50},  {98, 2, 190, 190},
    {156, 1, 1, 1},       {160, 4, 2, 2},       {164, 4, 12, 12},   {168, 1, 1, 1},
    {281, 1, 1, 1},       {360, 4, 0, 0},       {480, 1, 1, 1},     {828, 4, 1, 1},
    {838, 2, 30, 70},     {840, 2, 250, 250},   {842, 2, 200, 210}, {844, 1, 1, 1},
    {880, 4, 0, 1, true}, {888, 1, 0, 1, true}, {889, 1, 0, 0},     {890, 1, 1, 1},
    {904, 2, 10, 0},      {906, 2, 170, 170},   {908, 2, 80, 80},   {910, 1, 1, 1},
    {1445, 1, 1, 1},      {1446, 1, 1, 1},
};
constexpr presence capability_marks[] = {
    {main_1, 0xC940014F8},
    {main_2, 0x200002},
    {main_3, 0x30000},
    {group_282, 0x800000000007},
};
constexpr std::uint64_t group_912_of[LUM_SUB_PORTS] = {0xF00C000079, 0xF00E800079};

// What is sent of an attribute block. The widths of 16, 26, 52, 72, 836, 846, 848, 850 and 852
// follow from the places and presence bits of their neighbours.
struct member {
  std::uint16_t position;
  std::uint8_t width;
};
constexpr member sent_members[] = {
    {92, 1},  {360, 4}, {160, 4},  {168, 1}, {164, 4}, {281, 1}, {70, 2},  {8, 2},   {6, 2},
    {4, 2},   {25, 1},  {1446, 1}, {96, 2},  {98, 2},  {10, 2},  {12, 2},  {68, 1},  {1445, 1},
    {828, 4}, {836, 2}, {842, 2},  {840, 2}, {838, 2}, {844, 1}, {850, 2}, {848, 2}, {846, 2},
    {852, 4}, {889, 1}, {890, 1},  {880, 4}, {888, 1}, {910, 1}, {904, 2}, {906, 2}, {908, 2},
    {416, 4}, {16, 4},  {26, 2},   {72, 4},  {52, 4},  {156, 1},
};
constexpr std::size_t always_one = 480;      // not copied
constexpr std::size_t bytes_416_to_419 = 4;  // one entry above, a presence bit each
constexpr presence sent_marks[] = {
    {main_1, 0x20000CB41032F8},  {main_2, 0x200002},        {main_3, 0x30000},
    {group_282, 0x800000000007}, {group_912, 0xF00E8007FD}, {group_420, 0xF},
};

// There are as many presence bits as members are sent.
consteval int presence_bits() {
  int bits = 0;
  for (const presence &p : sent_marks) bits += std::popcount(p.bits);
  return bits;
}
static_assert(presence_bits() == 46);
static_assert(std::size(sent_members) - 1 + bytes_416_to_419 + 1 == 46);

constexpr std::uint64_t kept_of_main_1 = ~std::uint64_t{0} << 54;

// Create element.
constexpr std::size_t create_attrs = 88;
struct constant {
  std::uint16_t position;
  std::uint8_t width;
  std::int32_t value;
};
constexpr constant create_constants[] = {
    {1, 1, 1},    {49, 1, 1},   {72, 4, 0x107}, {1880, 4, 48}, {1888, 1, 1},
    {1889, 1, 1}, {1890, 1, 1}, {1891, 1, 1},   {1892, 1, 1},  {2896, 1, 1},
    {2897, 1, 1}, {2898, 1, 1}, {2899, 1, 1},   {2900, 1, 1},  {2901, 1, 1},
    {2903, 1, 1}, {2904, 1, 1}, {3056, 1, 1},   {3057, 2, 1},
};

// No table names a place outside its record.
template <typename Table>
consteval bool all_inside(const Table &table, std::size_t size) {
  return std::ranges::all_of(
      table, [&](const auto &each) { return is_inside(size, each.position, each.width); });
}
constexpr presence_word presence_words[] = {main_1,    main_2,    main_3,
                                            group_282, group_912, group_420};
static_assert(all_inside(presence_words, LUM_ATTRS_SIZE));
template <typename Marks>
consteval bool all_within_their_words(const Marks &marks) {
  return std::ranges::all_of(marks, [](const presence &p) {
    return p.word.width >= sizeof p.bits || p.bits >> (8 * p.word.width) == 0;
  });
}
static_assert(all_within_their_words(capability_marks) && all_within_their_words(sent_marks));
static_assert(all_within_their_words(std::array{presence{group_912, group_912_of[0]},
                                                presence{group_912, group_912_of[1]}}));
static_assert(all_inside(capabilities, LUM_ATTRS_SIZE));
static_assert(all_inside(sent_members, LUM_ATTRS_SIZE));
static_assert(all_inside(create_constants, LUM_CREATE_ELEMENT_SIZE));

// Update element.
constexpr std::size_t update_state = 0;
constexpr std::size_t update_presence = 1;  // bit 0: the state is present
constexpr std::size_t update_attrs = 8;
constexpr std::size_t update_kind = 1768;

using attrs_record = record_of<LUM_ATTRS_SIZE>;
using const_attrs_record = const_record_of<LUM_ATTRS_SIZE>;

// Every member and presence bit, but for ten bits of the first word that belong to no member.
void clear_attrs(attrs_record attrs) {
  const auto kept = get<main_1.position, std::uint64_t>(attrs) & kept_of_main_1;
  std::ranges::fill(attrs, std::uint8_t{0});
  put<main_1.position, std::uint64_t>(attrs, kept);
}

void copy_attrs(const_attrs_record source, attrs_record destination) {
  for (const member &m : sent_members) {
    std::ranges::copy(source.subspan(m.position, m.width), destination.begin() + m.position);
  }
  put<always_one, std::uint8_t>(destination, 1);
  mark(destination, sent_marks);
}

}  // namespace

void lum_init_controller_capabilities(lum_controller_attrs *attrs, std::int32_t sub_port) {
  LUM_INFO(184, "entry ");
  const bool is_sub_port_1 = sub_port == 1;
  for (const capability &c : capabilities) {
    if (c.sub_port_1_only && !is_sub_port_1) continue;
    put_number(attrs->bytes, c.position, c.width, is_sub_port_1 ? c.sub_port_1 : c.sub_port_0);
  }
  mark(attrs->bytes, capability_marks);
  mark(attrs->bytes, std::array{presence{group_912, group_912_of[is_sub_port_1 ? 1 : 0]}});
}

void lum_controller_attrs_clear(lum_controller_attrs *attrs) { clear_attrs(attrs->bytes); }

void lum_controller_attrs_copy(const lum_controller_attrs *source,
                               lum_controller_attrs *destination) {
  copy_attrs(source->bytes, destination->bytes);
}

void lum::fill_create_element(create_element element, const lum_controller_attrs &attrs) {
  for (const constant &c : create_constants) {
    put_number(element, c.position, c.width, c.value);
  }
  clear_attrs(element.subspan<create_attrs, LUM_ATTRS_SIZE>());
  copy_attrs(attrs.bytes, element.subspan<create_attrs, LUM_ATTRS_SIZE>());
}

void lum::fill_update_element(update_element element) {
  put<update_kind, std::uint32_t>(element, 3);
  clear_attrs(element.subspan<update_attrs, LUM_ATTRS_SIZE>());
}

void lum::set_update_state(update_element element, std::uint32_t state) {
  put<update_state, std::uint8_t>(element, state != 0 ? 1 : 0);
  put<update_presence, std::uint8_t>(element, get<update_presence, std::uint8_t>(element) | 1);
}

void lum::set_update_attrs(update_element element, const lum_controller_attrs &attrs) {
  copy_attrs(attrs.bytes, element.subspan<update_attrs, LUM_ATTRS_SIZE>());
}

void lum::fill_delete_element(delete_element element) {
  element[0] = 1;
  element[1] = 0;
  element[2] = 1;
}
