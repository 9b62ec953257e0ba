// The files of a checkpoint store whose process was killed, damaged in any way before the next
// start: the store opens or is set aside as it was, a record is one that was saved or is not there,
// and the store serves from then on.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "chkpt.h"
#include "lum_linux/services.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;
using record = std::array<std::uint8_t, 96>;

constexpr std::uint32_t kind = 40;
constexpr std::uint32_t records = 8;
constexpr std::uint32_t merged_records =
    4;  // of them are in the database, the others in its log only
constexpr std::uint32_t new_key = 99;
constexpr std::uint8_t first = 0x10, second = 0x20;  // what a record is made of, beside its key
constexpr std::array<const char *, 3> files = {"checkpoints.db", "checkpoints.db-wal",
                                               "checkpoints.db-changes"};
using file_bytes = std::array<std::string, files.size()>;

void put_word(void *descriptor, std::size_t position, std::uint32_t value) {
  std::memcpy(static_cast<char *>(descriptor) + position, &value, sizeof value);
}

void expect(bool holds) {
  if (!holds) std::abort();
}

// What a process does when it starts.
std::uint64_t open_table(const fs::path &folder) {
  expect(lum_linux::checkpoints_set_path(folder / files[0]) == 0);
  chkpt_appdesc process;
  chkpt_appdesc_init(&process);
  put_word(&process, CHKPT_APPDESC_VERSION, 0x2003);
  std::strcpy(reinterpret_cast<char *>(&process) + CHKPT_APPDESC_NAME, "LUM_LIB");
  expect(chkpt_init(0, &process) == 0);
  chkpt_tbldesc descriptor;
  chkpt_tbldesc_init(&descriptor);
  put_word(&descriptor, CHKPT_TBLDESC_VERSION, 0x12003);
  put_word(&descriptor, CHKPT_TBLDESC_KEYED, 1);
  put_word(&descriptor, CHKPT_TBLDESC_PERSISTENT, 1);
  std::uint32_t restart = 0;
  std::uint64_t table = 0;
  expect(chkpt_register(&descriptor, kind, &restart, &table) == 0);
  return table;
}

record record_of(std::uint32_t key, std::uint8_t of) {
  record made;
  made.fill(static_cast<std::uint8_t>(key | of));
  return made;
}

cerrno save(std::uint64_t table, std::uint32_t key, std::uint8_t of) {
  std::uint64_t id = 0;
  const record made = record_of(key, of);
  if (chkpt_mapkey(table, key, &id, 0) != 0) {
    if (const cerrno rc = chkpt_create(table, key, &id); rc != 0) return rc;
  }
  return chkpt_save(table, id, made.data(), made.size());
}

std::optional<record> load(std::uint64_t table, std::uint32_t key) {
  std::uint64_t id = 0;
  record found = {};
  std::uint32_t length = found.size();
  if (chkpt_mapkey(table, key, &id, 0) != 0) return {};
  if (chkpt_get(table, id, 0, found.data(), &length) != 0) return {};
  return found;
}

// The files as a killed process leaves them: what was saved last is in the write-ahead log alone.
file_bytes make_whole() {
  const test_folder folder(folder_place::memory);
  std::uint64_t table = open_table(folder.path());
  for (std::uint32_t key = 1; key <= merged_records; ++key) expect(save(table, key, first) == 0);
  lum_linux::checkpoints_close();
  table = open_table(folder.path());
  for (std::uint32_t key = 2; key <= records; ++key) expect(save(table, key, second) == 0);
  file_bytes whole;
  for (std::size_t i = 0; i < files.size(); ++i) whole[i] = contents(folder / files[i]);
  lum_linux::checkpoints_close();
  for (const std::string &file : whole) expect(!file.empty());
  return whole;
}

// One edit of the input: which file and what is done to it, where, and with which bytes.
enum class edit : std::uint8_t { overwrite, cut, lengthen, insert, overwrite_record, kinds };

std::string text_of(const record &made) { return {made.begin(), made.end()}; }

// A place in or just before the data of one of the records that the file holds; they are a small
// part of it.
std::size_t place_at_record(const std::string &file, std::size_t place) {
  constexpr std::size_t ahead = 32, kinds_of_data = 2;
  const std::uint8_t of = place % kinds_of_data == 0 ? first : second;
  const std::uint32_t key = 1 + place / kinds_of_data % records;
  const std::size_t data = file.find(text_of(record_of(key, of)));
  const std::size_t within = place / (kinds_of_data * records) % (ahead + record().size());
  return data == std::string::npos ? file.size() : data - std::min(data, ahead) + within;
}

void overwrite(std::string &file, std::size_t from, std::string_view bytes) {
  file.replace(from, std::min(bytes.size(), file.size() - from),
               bytes.substr(0, file.size() - from));
}

void change(std::string &file, edit what, std::size_t place, std::string_view bytes) {
  const std::size_t from = file.empty() ? 0 : place % (file.size() + 1);
  constexpr std::size_t longest = 4096;
  switch (what) {
    case edit::overwrite:
      overwrite(file, from, bytes);
      break;
    case edit::overwrite_record:
      overwrite(file, place_at_record(file, place), bytes);
      break;
    case edit::cut:
      file.resize(from);
      break;
    case edit::lengthen:  // by the bytes over and over
      for (std::size_t i = 0; i < place % longest; ++i) {
        file += bytes.empty() ? '\0' : bytes[i % bytes.size()];
      }
      break;
    default:
      file.insert(from, bytes);
  }
}

// The input is a row of edits, each of a head of five bytes and up to 255 behind it.
void damage(file_bytes &store, std::span<const std::uint8_t> edits) {
  constexpr std::size_t head = 5;
  while (edits.size() >= head) {
    const std::size_t place = edits[1] | edits[2] << 8 | edits[3] << 16;
    const std::size_t length = std::min<std::size_t>(edits[4], edits.size() - head);
    const auto kinds = static_cast<std::size_t>(edit::kinds);
    change(store[edits[0] % files.size()], static_cast<edit>(edits[0] / files.size() % kinds),
           place, {reinterpret_cast<const char *>(edits.data()) + head, length});
    edits = edits.subspan(head + length);
  }
}

bool was_saved(std::uint32_t key, const record &found) {
  if (key > 1 && found == record_of(key, second)) return true;
  return key <= merged_records && found == record_of(key, first);
}

// A store that was set aside is kept with every byte it had.
void look_at_set_aside(const std::string &database) {
  const lum_linux::checkpoint_status status = lum_linux::checkpoints_status();
  expect(status.usable && status.reason.empty());
  if (!status.set_aside.empty()) expect(contents(status.set_aside) == database);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const file_bytes whole = make_whole();
  file_bytes store = whole;
  damage(store, {data, size});
  const test_folder folder(folder_place::memory);
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!store[i].empty()) write_file(folder / files[i], store[i]);  // else it is not there
  }
  std::array<std::optional<record>, records + 1> found;
  std::uint64_t table = open_table(folder.path());
  look_at_set_aside(store[0]);
  for (std::uint32_t key = 1; key <= records; ++key) {
    found[key] = load(table, key);
    expect(!found[key] || was_saved(key, *found[key]));
  }
  expect(save(table, new_key, first) == 0);
  lum_linux::checkpoints_close();
  table = open_table(folder.path());
  for (std::uint32_t key = 1; key <= records; ++key) expect(load(table, key) == found[key]);
  expect(load(table, new_key) == record_of(new_key, first));
  lum_linux::checkpoints_close();
  return 0;
}
