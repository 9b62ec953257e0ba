#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ea_server.h"
#include "lum_linux/services.h"

namespace {

using lum_linux::ea_entry;
using lum_linux::ea_run;

struct seen_entry {
  uint32_t operation;
  std::string ifname;
  uint32_t ifhandle;
  int admin;
  int state_ready;
  bool operator==(const seen_entry &) const = default;
};
std::vector<seen_entry> seen;
int connects = 0;
cerrno nested = 0;

uint32_t word_at(const uint8_t *at) {
  uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// Serves every entry but those of handle 13.
void serve(uint32_t operation, const void *request, void *reply) {
  const auto *in = static_cast<const uint8_t *>(request);
  auto *out = static_cast<uint8_t *>(reply);
  for (uint32_t i = 0; i < word_at(in + 8); ++i) {
    const uint8_t *entry = in + 16 + i * 1240;
    seen.push_back({operation, reinterpret_cast<const char *>(entry), word_at(entry + 64),
                    entry[76], entry[77]});
    if (word_at(entry + 64) != 13) out[16 + i * 3456] = 1;
  }
}

void serve_and_run(uint32_t, const void *, void *) {
  std::vector<bool> served;
  nested = ea_run(1, {}, served);
  lum_linux::ea_unregister();
}

cerrno connect() {
  ++connects;
  return 0;
}

ea_server_registration registration_of(ea_server_dispatch dispatch) {
  ea_server_registration server = {};
  server.manager = 3;
  std::strcpy(server.name, "lum_server");
  server.dispatch = dispatch;
  server.connect = connect;
  server.restart = 1;
  return server;
}

class entity_agent : public testing::Test {
 protected:
  void SetUp() override {
    seen.clear();
    connects = 0;
    const auto server = registration_of(serve);
    ASSERT_EQ(ea_server_register(&server), 0u);
  }
  void TearDown() override { lum_linux::ea_unregister(); }
  std::vector<bool> served;
};

}  // namespace

TEST_F(entity_agent, hands_every_field_to_the_server_and_its_answer_back) {
  const std::vector<ea_entry> entries = {
      {"Ots0_1_0_3_0", 0x08000001, 1, 2}, {std::string(63, 'n'), 13, 0xff, 0}, {"", 0, 0, 0}};
  ASSERT_EQ(ea_run(1, entries, served), 0u);
  EXPECT_EQ(seen, (std::vector<seen_entry>{{1, "Ots0_1_0_3_0", 0x08000001, 1, 2},
                                           {1, std::string(63, 'n'), 13, 0xff, 0},
                                           {1, "", 0, 0, 0}}));
  EXPECT_EQ(served, (std::vector<bool>{true, false, true}));
}

TEST_F(entity_agent, passes_foreign_operations_and_empty_batches) {
  ASSERT_EQ(ea_run(4711, {}, served), 0u);
  EXPECT_TRUE(served.empty());
  EXPECT_TRUE(seen.empty());
}

TEST_F(entity_agent, refuses_a_port_without_its_sub_port_whatever_is_asked_of_it) {
  for (const char *name : {"Ots0_1_0_3", "abc0_1_0_3", "Ots000_01_0_3", "Ots0_0_0_65539"}) {
    for (const uint32_t operation : {0u, 1u, 2u, 3u, 4u, 4711u}) {
      const std::vector<ea_entry> entries = {{"Ots0_1_0_3_1", 1, 1, 1}, {name, 2, 1, 1}};
      EXPECT_EQ(ea_run(operation, entries, served), 22u) << name << " " << operation;
    }
  }
  EXPECT_TRUE(seen.empty());
}

TEST_F(entity_agent, refuses_what_does_not_fit) {
  EXPECT_EQ(ea_run(1, std::vector<ea_entry>{{std::string(64, 'n'), 1, 0, 0}}, served), 22u);
  EXPECT_EQ(ea_run(1, std::vector<ea_entry>{{std::string("a\0b", 3), 1, 0, 0}}, served), 22u);
  EXPECT_EQ(ea_run(1, std::vector<ea_entry>(4097), served), 22u);
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(ea_run(1, std::vector<ea_entry>(4096), served), 0u);
  EXPECT_EQ(served.size(), 4096u);
}

TEST_F(entity_agent, tells_of_a_connect) {
  EXPECT_EQ(lum_linux::ea_connect(), 0u);
  EXPECT_EQ(connects, 1);
}

TEST_F(entity_agent, takes_one_server_and_shows_it) {
  auto server = registration_of(serve);
  EXPECT_EQ(ea_server_register(&server), 17u);
  EXPECT_EQ(ea_server_register(nullptr), 22u);
  ASSERT_TRUE(lum_linux::ea_registered().has_value());
  EXPECT_EQ(lum_linux::ea_registered()->name, "lum_server");
  EXPECT_EQ(lum_linux::ea_registered()->manager, 3u);
  EXPECT_EQ(lum_linux::ea_registered()->restart, 1);
  lum_linux::ea_unregister();
  server.dispatch = nullptr;
  EXPECT_EQ(ea_server_register(&server), 22u);
  std::memset(server.name, 'n', sizeof server.name);
  server.dispatch = serve;
  server.connect = nullptr;
  EXPECT_EQ(ea_server_register(&server), 0u);
  EXPECT_EQ(lum_linux::ea_registered()->name, std::string(63, 'n'));
  EXPECT_EQ(lum_linux::ea_connect(), 0u);
}

TEST_F(entity_agent, without_a_server_says_so) {
  lum_linux::ea_unregister();
  EXPECT_FALSE(lum_linux::ea_registered().has_value());
  EXPECT_EQ(ea_run(1, {}, served), 107u);
  EXPECT_EQ(lum_linux::ea_connect(), 107u);
}

TEST_F(entity_agent, a_server_that_calls_back_gets_an_answer) {
  lum_linux::ea_unregister();
  const auto server = registration_of(serve_and_run);
  ASSERT_EQ(ea_server_register(&server), 0u);
  EXPECT_EQ(ea_run(1, {}, served), 0u);
  EXPECT_EQ(nested, 35u);
  EXPECT_FALSE(lum_linux::ea_registered().has_value());
}

TEST_F(entity_agent, batches_come_one_at_a_time) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      std::vector<bool> own;
      for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(ea_run(2, std::vector<ea_entry>(3), own), 0u);
        EXPECT_EQ(own.size(), 3u);
      }
    });
  }
  for (std::thread &t : threads) t.join();
  EXPECT_EQ(seen.size(), 600u);
}
