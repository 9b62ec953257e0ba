// Checkpoint storage: chkpt.h. Opened as liblum opens it, and with records of the size of its own.
#include <unistd.h>

#include <cstring>
#include <map>
#include <thread>

#include "check.h"
#include "chkpt.h"

namespace conformance {
namespace {

constexpr uint32_t record_size = sizeof(lum_chkpt_record);
constexpr uint32_t first_key = 0x00010000;  // of rack 0, slot 1
constexpr uint32_t node = first_key & 0xFFFF0000;

using record = std::vector<uint8_t>;
record filled_with(uint8_t byte) { return record(record_size, byte); }

template <typename Descriptor, typename Value>
void put(Descriptor &descriptor, size_t position, Value value) {
  std::memcpy(reinterpret_cast<char *>(&descriptor) + position, &value, sizeof value);
}

struct opened {
  uint64_t table = 0;
  uint32_t restart = 7;
};

opened open_table() {
  start_platform();
  chkpt_appdesc application;
  chkpt_appdesc_init(&application);
  put<chkpt_appdesc, uint32_t>(application, CHKPT_APPDESC_OPTIONS, 0);
  put<chkpt_appdesc, uint32_t>(application, CHKPT_APPDESC_VERSION, 0x2003);
  std::memcpy(reinterpret_cast<char *>(&application) + CHKPT_APPDESC_NAME, "LUM_LIB", 8);
  cerrno rc = chkpt_init(0, &application);
  require(rc == 0 || rc == CHKPT_ALREADY_INITIALISED, "chkpt_init answers %u", rc);
  chkpt_tbldesc descriptor;
  chkpt_tbldesc_init(&descriptor);
  put<chkpt_tbldesc, uint32_t>(descriptor, CHKPT_TBLDESC_VERSION, 0x12003);
  put<chkpt_tbldesc, uint32_t>(descriptor, CHKPT_TBLDESC_KEYED, 1);
  put<chkpt_tbldesc, uint16_t>(descriptor, CHKPT_TBLDESC_ENTRIES, 0xFE4);
  put<chkpt_tbldesc, uint32_t>(descriptor, CHKPT_TBLDESC_PERSISTENT, 1);
  opened result;
  rc = chkpt_register(&descriptor, 40, &result.restart, &result.table);
  require(rc == 0, "chkpt_register answers %u", rc);
  require(result.restart <= 1, "restart is %u, and neither 0 nor 1", result.restart);
  return result;
}

uint64_t create(uint64_t table, uint32_t key) {
  uint64_t id = 0;
  const cerrno rc = chkpt_create(table, key, &id);
  require(rc == 0, "chkpt_create answers %u", rc);
  require(id != 0, "an entry is created with the id 0");
  return id;
}

void save(uint64_t table, uint64_t id, const record &data) {
  const cerrno rc = chkpt_save(table, id, data.data(), static_cast<uint32_t>(data.size()));
  require(rc == 0, "chkpt_save answers %u", rc);
}

record load(uint64_t table, uint64_t id) {
  record data(record_size, 0xEE);
  uint32_t size = record_size;
  const cerrno rc = chkpt_get(table, id, 0, data.data(), &size);
  require(rc == 0, "chkpt_get answers %u", rc);
  require(size == record_size, "chkpt_get says %u of %u bytes were copied", size, record_size);
  return data;
}

uint64_t find(uint64_t table, uint32_t key) {
  uint64_t id = 0;
  return chkpt_mapkey(table, key, &id, node) == 0 ? id : 0;
}

void a_record_is_what_was_saved_last() {
  const uint64_t table = open_table().table;
  const uint64_t id = create(table, first_key);
  save(table, id, filled_with(1));
  require(load(table, id) == filled_with(1), "another record than the saved one comes back");
  save(table, id, filled_with(2));
  require(load(table, id) == filled_with(2), "the record that was replaced comes back");
  require(chkpt_delete(table, id) == 0, "the entry cannot be deleted");
}

void a_record_of_another_size_is_refused() {
  const uint64_t table = open_table().table;
  const uint64_t id = create(table, first_key);
  record data(record_size + 8);
  save(table, id, filled_with(1));
  for (uint32_t size : {record_size - 1, record_size + 1}) {
    const uint32_t asked = size;
    require(chkpt_get(table, id, 0, data.data(), &size) != 0,
            "a record of %u bytes is given to whom asks for %u", record_size, asked);
  }
  require(chkpt_delete(table, id) == 0, "the entry cannot be deleted");
}

void entries_are_found_by_their_keys() {
  const uint64_t table = open_table().table;
  uint64_t id = 77;
  require(chkpt_mapkey(table, first_key, &id, node) != 0, "an entry is found that there is not");
  require(id == 77, "the id is changed where there is no entry");
  const uint64_t first = create(table, first_key), second = create(table, first_key + 1);
  require(first != second, "two entries have one id");
  require(find(table, first_key) == first, "the first entry is not found");
  require(find(table, first_key + 1) == second, "the second entry is not found");
  save(table, first, filled_with(1));
  require(chkpt_delete(table, first) == 0, "the entry cannot be deleted");
  require(find(table, first_key) == 0, "a deleted entry is found");
  record data(record_size);
  uint32_t size = record_size;
  require(chkpt_get(table, first, 0, data.data(), &size) != 0, "a deleted entry's data are given");
  require(chkpt_delete(table, second) == 0, "the second entry cannot be deleted");
}

std::map<uint64_t, record> walk(uint64_t table) {
  std::map<uint64_t, record> seen;
  uint64_t iterator = 0;
  const cerrno rc = chkpt_iterate_start(table, &iterator);
  require(rc == 0, "chkpt_iterate_start answers %u", rc);
  for (;;) {
    record data(record_size);
    uint32_t size = record_size;
    uint64_t id = 0;
    if (chkpt_iterate_next(iterator, 0, &id, data.data(), &size) != 0 || id == 0) break;
    require(seen.emplace(id, data).second, "an entry comes twice in a walk");
  }
  require(chkpt_iterate_end(iterator) == 0, "a walk cannot be ended");
  return seen;
}

void a_walk_gives_every_record() {
  const uint64_t table = open_table().table;
  std::map<uint64_t, record> kept = walk(table);
  for (uint8_t i = 0; i < 20; ++i) {
    const uint64_t id = create(table, first_key + i);
    save(table, id, filled_with(i));
    kept[id] = filled_with(i);
  }
  const uint64_t without_data = create(table, first_key + 20);
  const std::map<uint64_t, record> seen = walk(table);
  require(seen.count(without_data) == 0, "an entry without data comes in a walk");
  require(seen == kept, "a walk gives %zu records of %zu, or others", seen.size(), kept.size());
  for (uint32_t i = 0; i <= 20; ++i) {
    require(chkpt_delete(table, find(table, first_key + i)) == 0, "an entry cannot be deleted");
  }
}

void save_and_be_killed() {
  const uint64_t table = open_table().table;
  save(table, create(table, first_key), filled_with(1));
  save(table, find(table, first_key), filled_with(2));
  save(table, create(table, first_key + 1), filled_with(3));
  require(chkpt_delete(table, find(table, first_key + 1)) == 0, "the entry cannot be deleted");
}

void find_what_was_saved() {
  const opened store = open_table();
  require(store.restart == 1, "the storage of the process that was killed is not found");
  const uint64_t id = find(store.table, first_key);
  require(id != 0, "a record that was saved is gone with its process");
  require(load(store.table, id) == filled_with(2), "the record is not what was saved last");
  require(find(store.table, first_key + 1) == 0, "a record that was deleted is back");
  require(chkpt_delete(store.table, id) == 0, "the entry cannot be deleted");
}

void threads_save_at_once() {
  const uint64_t table = open_table().table;
  std::vector<uint64_t> ids;
  for (uint32_t t = 0; t < 4; ++t) ids.push_back(create(table, first_key + t));
  std::atomic<uint32_t> wrong{0};
  std::vector<std::thread> threads;
  for (uint8_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      record data(record_size);
      for (uint8_t round = 0; round < 25; ++round) {
        const record mine = filled_with(static_cast<uint8_t>(t * 50 + round));
        uint32_t size = record_size;
        wrong += chkpt_save(table, ids[t], mine.data(), record_size) != 0;
        wrong += chkpt_get(table, ids[t], 0, data.data(), &size) != 0 || data != mine;
      }
    });
  }
  for (std::thread &one : threads) one.join();
  require(wrong == 0, "%u of 200 calls by four threads on entries of their own went wrong",
          wrong.load());
  for (const uint64_t id : ids) require(chkpt_delete(table, id) == 0, "an entry stays");
}

}  // namespace

std::vector<check> checkpoint_checks() {
  return {{"checkpoints.give_what_was_saved_last", a_record_is_what_was_saved_last},
          {"checkpoints.refuse_another_size", a_record_of_another_size_is_refused},
          {"checkpoints.are_found_by_their_keys", entries_are_found_by_their_keys},
          {"checkpoints.come_in_a_walk", a_walk_gives_every_record},
          {"checkpoints.survive_their_process", save_and_be_killed, find_what_was_saved},
          {"checkpoints.serve_several_threads", threads_save_at_once}};
}

}  // namespace conformance
