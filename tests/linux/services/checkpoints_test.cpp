#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>
#include <thread>
#include <vector>

#include "services/checkpoint_fixture.h"
#include "services/log_capture.h"

using lum_linux::checkpoints_close;
using lum_linux::checkpoints_set_path;
using lum_linux::checkpoints_status;

TEST_F(checkpoints, a_new_store_is_no_restart_and_an_old_one_is) {
  open();
  EXPECT_EQ(restart, 0u);
  reopen();
  EXPECT_EQ(restart, 1u);
  EXPECT_TRUE(checkpoints_status().restart);
  EXPECT_EQ(checkpoints_status().file, file);
}

TEST_F(checkpoints, starting_twice_is_told_and_tables_keep_their_handle) {
  open();
  const uint64_t first = table;
  EXPECT_EQ(init(), CHKPT_ALREADY_INITIALISED);
  EXPECT_EQ(add_table(), 0u);
  EXPECT_EQ(table, first);
  EXPECT_EQ(restart, 0u);
  EXPECT_EQ(add_table(0x12004), 17u);
  EXPECT_EQ(checkpoints_set_path(folder / "other.db"), 16u);
}

TEST_F(checkpoints, a_look_shows_what_is_saved_and_nothing_else) {
  open();
  chkpt_record record = record_of(0);
  const auto look = [&](uint32_t of_key) {
    return lum_linux::checkpoints_look(table, of_key, std::as_writable_bytes(std::span(record)));
  };
  EXPECT_TRUE(look(key).known);
  EXPECT_FALSE(look(key).found);
  uint64_t id = 0;
  ASSERT_EQ(chkpt_create(table, key, &id), 0u);
  EXPECT_FALSE(look(key).found) << "it has no data yet";
  ASSERT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 0u);
  EXPECT_TRUE(look(key).found);
  EXPECT_EQ(record, record_of(5));
  EXPECT_FALSE(look(key + 1).found);
  EXPECT_FALSE(lum_linux::checkpoints_look(table + 9, key, {}).known);
}

TEST_F(checkpoints, a_look_that_fails_keeps_no_save_from_its_record) {
  open();
  const uint64_t id = create_saved(key, 5);
  std::array<std::byte, 95> short_one;
  const auto seen = lum_linux::checkpoints_look(table, key, short_one);
  EXPECT_FALSE(seen.known);
  EXPECT_FALSE(seen.found);
  EXPECT_NE(seen.reason, "");
  EXPECT_TRUE(checkpoints_status().troubled.empty());
  EXPECT_EQ(checkpoints_status().failures, 0u);
  EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 0u);
}

TEST_F(checkpoints, entries_are_created_saved_found_and_deleted) {
  open();
  uint64_t id = 0, found = 77;
  EXPECT_EQ(chkpt_mapkey(table, key, &found, 0x30000), 2u);
  EXPECT_EQ(found, 77u);
  ASSERT_EQ(chkpt_create(table, key, &id), 0u);
  EXPECT_NE(id, 0u);
  EXPECT_EQ(chkpt_create(table, key, &found), 17u);
  EXPECT_EQ(chkpt_mapkey(table, key, &found, 0), 0u);
  EXPECT_EQ(found, id);
  chkpt_record record = record_of(0);
  EXPECT_EQ(get(id, record), 61u);
  EXPECT_EQ(chkpt_save(table, id, record_of(5).data(), 96), 0u);
  EXPECT_EQ(get(id, record), 0u);
  EXPECT_EQ(record, record_of(5));
  EXPECT_EQ(chkpt_save(table, id, record_of(6).data(), 96), 0u);
  EXPECT_EQ(get(id, record), 0u);
  EXPECT_EQ(record, record_of(6));
  EXPECT_EQ(chkpt_delete(table, id), 0u);
  EXPECT_EQ(chkpt_delete(table, id), 2u);
  EXPECT_EQ(chkpt_save(table, id, record.data(), 96), 2u);
  EXPECT_EQ(get(id, record), 2u);
  EXPECT_EQ(chkpt_mapkey(table, key, &found, 0), 2u);
}

TEST_F(checkpoints, ids_are_never_0_and_never_used_again) {
  open();
  std::set<uint64_t> ids;
  for (int round = 0; round < 20; ++round) {
    uint64_t id = 0;
    ASSERT_EQ(chkpt_create(table, key, &id), 0u);
    EXPECT_NE(id, 0u);
    EXPECT_TRUE(ids.insert(id).second);
    ASSERT_EQ(chkpt_delete(table, id), 0u);
    if (round % 5 == 0) reopen();
  }
}

TEST_F(checkpoints, records_come_back_after_a_restart) {
  open();
  const uint64_t id = create_saved(key, 1);
  create_saved(0xFFFFFFFF, 2);
  reopen();
  uint64_t found = 0;
  EXPECT_EQ(chkpt_mapkey(table, key, &found, 0), 0u);
  EXPECT_EQ(found, id);
  EXPECT_EQ(saved(key), record_of(1));
  EXPECT_EQ(saved(0xFFFFFFFF), record_of(2));
}

TEST_F(checkpoints, an_entry_without_data_does_not_survive) {
  open();
  uint64_t id = 0;
  ASSERT_EQ(chkpt_create(table, key, &id), 0u);
  reopen();
  EXPECT_EQ(chkpt_mapkey(table, key, &id, 0), 2u);
}

TEST_F(checkpoints, a_table_that_does_not_persist_starts_empty) {
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(add_table(1, false, 41), 0u);
  create_saved(key, 1);
  checkpoints_close();
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(add_table(1, false, 41), 0u);
  EXPECT_EQ(restart, 0u);
  EXPECT_EQ(saved(key), record_of(0xEE));
}

TEST_F(checkpoints, tables_do_not_see_each_others_entries) {
  open();
  const uint64_t id = create_saved(key, 1), first = table;
  ASSERT_EQ(add_table(1, true, 41), 0u);
  EXPECT_NE(table, first);
  chkpt_record record;
  EXPECT_EQ(get(id, record), 2u);
  EXPECT_EQ(chkpt_delete(table, id), 2u);
  create_saved(key, 2);
  table = first;
  EXPECT_EQ(saved(key), record_of(1));
}

TEST_F(checkpoints, the_walk_visits_entries_with_data) {
  open();
  std::set<uint64_t> expected, visited;
  for (uint32_t k = 1; k <= 5; ++k) expected.insert(create_saved(k, static_cast<uint8_t>(k)));
  uint64_t without_data = 0;
  ASSERT_EQ(chkpt_create(table, 99, &without_data), 0u);
  uint64_t iterator = 0, id = 0;
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), 0u);
  for (;;) {
    chkpt_record record;
    uint32_t size = record.size();
    ASSERT_EQ(chkpt_iterate_next(iterator, 0, &id, record.data(), &size), 0u);
    if (id == 0) break;
    EXPECT_EQ(size, 96u);
    EXPECT_TRUE(visited.insert(id).second);
  }
  EXPECT_EQ(visited, expected);
  EXPECT_EQ(chkpt_iterate_end(iterator), 0u);
  EXPECT_EQ(chkpt_iterate_end(iterator), 22u);
}

TEST_F(checkpoints, a_walk_survives_changes_under_it) {
  open();
  std::vector<uint64_t> ids;
  for (uint32_t k = 1; k <= 4; ++k) ids.push_back(create_saved(k, 1));
  uint64_t iterator = 0, id = 0;
  chkpt_record record;
  uint32_t size = record.size();
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), 0u);
  ASSERT_EQ(chkpt_iterate_next(iterator, 0, &id, record.data(), &size), 0u);
  EXPECT_EQ(id, ids[0]);
  ASSERT_EQ(chkpt_delete(table, ids[0]), 0u);
  ASSERT_EQ(chkpt_delete(table, ids[1]), 0u);
  ASSERT_EQ(chkpt_iterate_next(iterator, 0, &id, record.data(), &size), 0u);
  EXPECT_EQ(id, ids[2]);
}

TEST_F(checkpoints, a_record_of_another_size_is_refused) {
  open();
  const uint64_t good = create_saved(1, 1), bad = create_saved(2, 2), last = create_saved(3, 3);
  checkpoints_close();
  alter_store(file, "UPDATE entries SET data=x'0102' WHERE key=2");
  open();
  chkpt_record record = record_of(9);
  EXPECT_EQ(get(bad, record), 74u);
  EXPECT_EQ(record, record_of(9));
  uint32_t size = 95;
  EXPECT_EQ(chkpt_get(table, good, 0, record.data(), &size), 74u);
  EXPECT_EQ(size, 95u);
  EXPECT_GT(checkpoints_status().failures, 0u);

  uint64_t iterator = 0, id = 0;
  size = 96;
  ASSERT_EQ(chkpt_iterate_start(table, &iterator), 0u);
  EXPECT_EQ(chkpt_iterate_next(iterator, 0, &id, record.data(), &size), 0u);
  EXPECT_EQ(chkpt_iterate_next(iterator, 0, &id, record.data(), &size), 74u);
  EXPECT_EQ(chkpt_iterate_next(iterator, 0, &id, record.data(), &size), 0u);
  EXPECT_EQ(id, last);
  EXPECT_EQ(chkpt_save(table, bad, record_of(4).data(), 96), 0u);
  EXPECT_EQ(saved(2), record_of(4));
}

TEST_F(checkpoints, a_record_that_was_altered_or_has_another_version_is_refused) {
  open();
  const uint64_t altered = create_saved(1, 1), foreign = create_saved(2, 2);
  checkpoints_close();
  alter_store(file,
              "UPDATE entries SET data=zeroblob(96) WHERE key=1;"
              "UPDATE entries SET version=7 WHERE key=2");
  open();
  chkpt_record record = record_of(9);
  EXPECT_EQ(get(altered, record), 74u);
  EXPECT_EQ(get(foreign, record), 74u);
  EXPECT_EQ(record, record_of(9));
}

TEST_F(checkpoints, calls_that_make_no_sense_are_refused) {
  uint64_t id = 77, iterator = 77;
  uint32_t size = 96;
  chkpt_record record;
  chkpt_tbldesc unkeyed;
  chkpt_tbldesc_init(&unkeyed);
  chkpt_tbldesc keyed = unkeyed;
  put_word(&keyed, CHKPT_TBLDESC_KEYED, 1);
  EXPECT_EQ(chkpt_register(&keyed, 40, &restart, &table), 22u);
  EXPECT_EQ(chkpt_init(0, nullptr), 22u);
  open();
  EXPECT_EQ(chkpt_register(&unkeyed, 42, &restart, &table), 22u);
  EXPECT_EQ(chkpt_register(nullptr, 40, &restart, &table), 22u);
  EXPECT_EQ(chkpt_register(&keyed, 40, nullptr, &table), 22u);
  EXPECT_EQ(chkpt_register(&keyed, 40, &restart, nullptr), 22u);
  EXPECT_EQ(chkpt_mapkey(4711, key, &id, 0), 22u);
  EXPECT_EQ(chkpt_mapkey(table, key, nullptr, 0), 22u);
  EXPECT_EQ(chkpt_create(4711, key, &id), 22u);
  EXPECT_EQ(chkpt_create(table, key, nullptr), 22u);
  EXPECT_EQ(chkpt_get(4711, 1, 0, record.data(), &size), 22u);
  EXPECT_EQ(chkpt_get(table, 1, 1, record.data(), &size), 22u);
  EXPECT_EQ(chkpt_get(table, 1, 0, nullptr, &size), 22u);
  EXPECT_EQ(chkpt_get(table, 1, 0, record.data(), nullptr), 22u);
  EXPECT_EQ(chkpt_get(table, 0xFFFFFFFFFFFFFFFF, 0, record.data(), &size), 2u);
  EXPECT_EQ(chkpt_save(4711, 1, record.data(), 96), 22u);
  EXPECT_EQ(chkpt_save(table, 1, nullptr, 96), 22u);
  EXPECT_EQ(chkpt_delete(4711, 1), 22u);
  EXPECT_EQ(chkpt_iterate_start(4711, &iterator), 22u);
  EXPECT_EQ(chkpt_iterate_start(table, nullptr), 22u);
  EXPECT_EQ(chkpt_iterate_next(4711, 0, &id, record.data(), &size), 22u);
  EXPECT_EQ(id, 77u);
  EXPECT_EQ(iterator, 77u);
  checkpoints_close();
  EXPECT_EQ(chkpt_mapkey(table, key, &id, 0), 22u);
  chkpt_appdesc_init(nullptr);
  chkpt_tbldesc_init(nullptr);
  EXPECT_EQ(checkpoints_set_path(""), 22u);
}

TEST_F(checkpoints, come_from_many_threads) {
  open();
  std::vector<std::thread> threads;
  for (uint32_t t = 1; t <= 3; ++t) {
    threads.emplace_back([&, t] {
      for (uint32_t i = 0; i < 20; ++i) create_saved(t << 16 | i, static_cast<uint8_t>(t));
    });
  }
  for (int i = 0; i < 20; ++i) checkpoints_status();
  for (std::thread &t : threads) t.join();
  EXPECT_EQ(checkpoints_status().entries, 60u);
  EXPECT_EQ(checkpoints_status().writes, 120u);
  reopen();
  for (uint32_t t = 1; t <= 3; ++t) {
    for (uint32_t i = 0; i < 20; ++i) {
      EXPECT_EQ(saved(t << 16 | i), record_of(static_cast<uint8_t>(t)));
    }
  }
}
