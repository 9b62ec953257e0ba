// The files of a checkpoint store, damaged in any way between two starts: a record is what was
// saved, or is not there.
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>

#include "chkpt.h"
#include "lum_linux/services.h"

namespace {

namespace fs = std::filesystem;
using record = std::array<std::uint8_t, 96>;

constexpr std::uint32_t kind = 40;
constexpr std::uint32_t records = 8;
constexpr std::array<const char *, 2> files = {"checkpoints.db", "checkpoints.db-changes"};

struct store_folder {
  store_folder() {
    std::string made = (fs::temp_directory_path() / "lum-fuzz-XXXXXX").string();
    if (mkdtemp(made.data()) == nullptr) abort();
    path = made;
  }
  ~store_folder() { fs::remove_all(path); }
  fs::path path;
};

void put_word(void *descriptor, std::size_t position, std::uint32_t value) {
  std::memcpy(static_cast<char *>(descriptor) + position, &value, sizeof value);
}

std::uint64_t open_table() {
  chkpt_appdesc process;
  chkpt_appdesc_init(&process);
  put_word(&process, CHKPT_APPDESC_VERSION, 0x2003);
  std::strcpy(reinterpret_cast<char *>(&process) + CHKPT_APPDESC_NAME, "LUM_LIB");
  chkpt_init(0, &process);
  chkpt_tbldesc descriptor;
  chkpt_tbldesc_init(&descriptor);
  put_word(&descriptor, CHKPT_TBLDESC_VERSION, 0x12003);
  put_word(&descriptor, CHKPT_TBLDESC_KEYED, 1);
  put_word(&descriptor, CHKPT_TBLDESC_PERSISTENT, 1);
  std::uint32_t restart = 0;
  std::uint64_t table = 0;
  chkpt_register(&descriptor, kind, &restart, &table);
  return table;
}

record record_of(std::uint32_t key) {
  record made;
  made.fill(static_cast<std::uint8_t>(key));
  return made;
}

std::string contents(const fs::path &file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// The files of a store that was closed with every record saved.
std::array<std::string, files.size()> make_whole() {
  const store_folder folder;
  lum_linux::checkpoints_set_path(folder.path / files[0]);
  const std::uint64_t table = open_table();
  for (std::uint32_t key = 1; key <= records; ++key) {
    std::uint64_t id = 0;
    const record made = record_of(key);
    if (chkpt_create(table, key, &id) != 0) abort();
    if (chkpt_save(table, id, made.data(), made.size()) != 0) abort();
  }
  lum_linux::checkpoints_close();
  return {contents(folder.path / files[0]), contents(folder.path / files[1])};
}

// Bytes of the input as edits: which file, where, how many bytes, the bytes. A length of 255 cuts
// the file off there.
void damage(std::array<std::string, files.size()> &store, std::span<const std::uint8_t> edits) {
  while (edits.size() >= 4) {
    std::string &file = store[edits[0] % store.size()];
    const std::size_t place = edits[1] | edits[2] << 8;
    const std::size_t length = std::min<std::size_t>(edits[3], edits.size() - 4);
    const auto bytes = edits.subspan(4, edits[3] == 255 ? 0 : length);
    edits = edits.subspan(4 + bytes.size());
    if (file.empty()) continue;
    const std::size_t from = place % file.size();
    if (length == 255) file.resize(from);
    for (std::size_t i = 0; i < bytes.size() && from + i < file.size(); ++i) {
      file[from + i] = static_cast<char>(bytes[i]);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const auto whole = make_whole();
  auto store = whole;
  damage(store, {data, size});
  const store_folder folder;
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::ofstream(folder.path / files[i], std::ios::binary) << store[i];
  }
  lum_linux::checkpoints_set_path(folder.path / files[0]);
  const std::uint64_t table = open_table();
  for (std::uint32_t key = 1; key <= records; ++key) {
    std::uint64_t id = 0;
    record found = {};
    std::uint32_t length = found.size();
    if (chkpt_mapkey(table, key, &id, 0) != 0) continue;
    if (chkpt_get(table, id, 0, found.data(), &length) == 0 && found != record_of(key)) abort();
  }
  lum_linux::checkpoints_close();
  return 0;
}
