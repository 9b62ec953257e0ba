#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "imca.h"
#include "lum_linux/services.h"

namespace {

using record = wiredef_icpe_ext_intf_create_reply_data;
using lum_linux::create_reply;
using lum_linux::encode_create_reply;

int allocations = 0;
bool no_memory = false;
const wiredef_allocator counting = {[](uint64_t size) -> void * {
                                      if (no_memory) return nullptr;
                                      ++allocations;
                                      return std::malloc(size);
                                    },
                                    [](void *block) {
                                      --allocations;
                                      std::free(block);
                                    }};

// Decodes from memory of exactly the reply's size, so that a read beyond it is noticed.
cerrno decode(const std::vector<uint8_t> &encoded, record &out) {
  const std::vector<uint8_t> tight(encoded);
  return wiredef_icpe_ext_intf_create_reply_data_decode_ext(
      tight.data(), static_cast<uint32_t>(tight.size()), &out, &counting);
}

bool complete(const record &decoded) {
  return wiredef_icpe_ext_intf_create_reply_data_have_required(&decoded) != 0;
}

void release(record &decoded) {
  wiredef_icpe_ext_intf_create_reply_data_free_ext(&decoded, &counting);
}

create_reply reply_with(std::optional<uint32_t> ifhandle, std::optional<std::string> text = {}) {
  create_reply reply;
  reply.ifhandle = ifhandle;
  reply.description = std::move(text);
  return reply;
}

}  // namespace

TEST(create_replies, carry_the_handle) {
  record decoded = {};
  ASSERT_EQ(decode(encode_create_reply(reply_with(0x08000001)), decoded), 0u);
  EXPECT_EQ(decoded.ifhandle, 0x08000001u);
  EXPECT_EQ(decoded.description, nullptr);
  EXPECT_TRUE(complete(decoded));
  release(decoded);
  EXPECT_EQ(allocations, 0);
}

TEST(create_replies, carry_a_description) {
  record decoded = {};
  ASSERT_EQ(decode(encode_create_reply(reply_with(1, "first port")), decoded), 0u);
  EXPECT_STREQ(decoded.description, "first port");
  EXPECT_EQ(allocations, 1);
  release(decoded);
  EXPECT_EQ(decoded.description, nullptr);
  release(decoded);
  EXPECT_EQ(allocations, 0);
}

TEST(create_replies, descriptions_are_cut_at_their_bounds) {
  record decoded = {};
  ASSERT_EQ(decode(encode_create_reply(reply_with(1, std::string(5000, 'd'))), decoded), 0u);
  EXPECT_EQ(std::strlen(decoded.description), 1024u);
  release(decoded);
  ASSERT_EQ(decode(encode_create_reply(reply_with(1, std::string("ab\0cd", 5))), decoded), 0u);
  EXPECT_STREQ(decoded.description, "ab");
  release(decoded);
  ASSERT_EQ(decode(encode_create_reply(reply_with(1, "")), decoded), 0u);
  EXPECT_STREQ(decoded.description, "");
  release(decoded);
}

TEST(create_replies, without_the_handle_decode_but_are_not_complete) {
  record decoded = {};
  ASSERT_EQ(decode(encode_create_reply(reply_with({}, "x")), decoded), 0u);
  EXPECT_FALSE(complete(decoded));
  release(decoded);
  EXPECT_EQ(wiredef_icpe_ext_intf_create_reply_data_have_required(nullptr), 0);
}

TEST(create_replies, cut_short_anywhere_are_refused) {
  const std::vector<uint8_t> whole = encode_create_reply(reply_with(7, "description"));
  for (size_t length = 0; length < whole.size(); ++length) {
    record decoded = {};
    EXPECT_EQ(decode({whole.begin(), whole.begin() + static_cast<long>(length)}, decoded), 22u);
    EXPECT_EQ(decoded.description, nullptr);
  }
  create_reply reply = reply_with(7);
  reply.truncated = true;
  record decoded = {};
  EXPECT_EQ(decode(encode_create_reply(reply), decoded), 22u);
}

TEST(create_replies, with_more_behind_them_are_refused) {
  std::vector<uint8_t> longer = encode_create_reply(reply_with(7));
  longer.push_back(0);
  record decoded = {};
  EXPECT_EQ(decode(longer, decoded), 22u);
  longer[4] += 1;
  EXPECT_EQ(decode(longer, decoded), 22u);
}

TEST(create_replies, unknown_members_are_skipped_and_doubled_ones_refused) {
  std::vector<uint8_t> reply = encode_create_reply(reply_with(7));
  const std::vector<uint8_t> unknown = {0x99, 0x99, 2, 0, 1, 2};
  reply.insert(reply.begin() + 8, unknown.begin(), unknown.end());
  reply[3] += 1;
  reply[4] += static_cast<uint8_t>(unknown.size());
  record decoded = {};
  ASSERT_EQ(decode(reply, decoded), 0u);
  EXPECT_EQ(decoded.ifhandle, 7u);
  EXPECT_TRUE(complete(decoded));

  std::vector<uint8_t> twice = encode_create_reply(reply_with(7));
  const std::vector<uint8_t> member(twice.begin() + 8, twice.end());
  twice.insert(twice.end(), member.begin(), member.end());
  twice[3] += 1;
  twice[4] += static_cast<uint8_t>(member.size());
  EXPECT_EQ(decode(twice, decoded), 22u);
}

TEST(create_replies, a_handle_of_another_width_is_refused) {
  const std::vector<uint8_t> narrow = {'I', 'R', 1, 1, 14, 0, 0, 0, 1, 0, 2, 0, 7, 0};
  record decoded = {};
  EXPECT_EQ(decode(narrow, decoded), 22u);
}

TEST(create_replies, arguments_that_make_no_sense_are_refused) {
  const std::vector<uint8_t> good = encode_create_reply(reply_with(7, "x"));
  const auto size = static_cast<uint32_t>(good.size());
  record decoded = {};
  const auto decode_ext = wiredef_icpe_ext_intf_create_reply_data_decode_ext;
  EXPECT_EQ(decode_ext(nullptr, size, &decoded, &counting), 22u);
  EXPECT_EQ(decode_ext(good.data(), size, nullptr, &counting), 22u);
  EXPECT_EQ(decode_ext(good.data(), size, &decoded, nullptr), 22u);
  const wiredef_allocator half = {counting.allocate, nullptr};
  EXPECT_EQ(decode_ext(good.data(), size, &decoded, &half), 22u);
  EXPECT_EQ(decode_ext(good.data(), 0, &decoded, &counting), 22u);
  wiredef_icpe_ext_intf_create_reply_data_free_ext(nullptr, &counting);
  wiredef_icpe_ext_intf_create_reply_data_free_ext(&decoded, nullptr);
}

TEST(create_replies, no_memory_for_the_description_is_12) {
  record decoded = {};
  no_memory = true;
  EXPECT_EQ(decode(encode_create_reply(reply_with(7, "x")), decoded), 12u);
  no_memory = false;
  EXPECT_EQ(decoded.description, nullptr);
}

TEST(create_replies, any_bytes_are_accepted_or_refused_without_harm) {
  std::mt19937 random(11);
  const std::vector<uint8_t> good = encode_create_reply(reply_with(0x01020304, "some text"));
  for (int round = 0; round < 50000; ++round) {
    std::vector<uint8_t> bytes = good;
    const size_t changes = 1 + random() % 4;
    for (size_t c = 0; c < changes; ++c) {
      bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
    }
    if (random() % 4 == 0) bytes.resize(random() % bytes.size());
    record decoded = {};
    const cerrno rc = decode(bytes, decoded);
    EXPECT_TRUE(rc == 0 || rc == 22);
    if (rc == 0) release(decoded);
  }
  EXPECT_EQ(allocations, 0);
}
