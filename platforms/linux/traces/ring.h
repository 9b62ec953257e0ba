// The ring of one channel: mapped memory that outlives the process that writes to it.
#pragma once

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include "traces/guarded_mapping.h"
#include "traces/line_format.h"
#include "traces/ring_reader.h"

namespace lum_linux {

struct ring_names {
  std::string channel;
  std::string process;
  std::string digest;
  uint32_t points = 0;
};

class ring {
 public:
  // Maps the file, of which all is allocated so that no write to it can fail; memory of the process
  // alone where the file cannot be had, with the reason. What a file held before is given up. May
  // wait for the disk; throws std::system_error when there is no memory either.
  ring(const std::filesystem::path &file, uint32_t bytes, const ring_names &names);
  // In memory alone.
  ring(uint32_t bytes, const ring_names &names, std::string why);
  ~ring();
  ring(const ring &) = delete;
  ring &operator=(const ring &) = delete;

  // Why it is in memory alone, else empty.
  const std::string &problem() const { return problem_; }
  // Whether somebody has cut its file short: what it held is gone, and what is added too.
  bool is_lost() const { return guard_ && guard_->is_lost(); }
  // Lets others have its file, from then on.
  void give_up_file();
  void name_process(const std::string &process);

  // Adds a record, from any thread: waits for nothing, and overwrites the oldest. False when the
  // format cannot be printed.
  bool put(uint32_t point, uint32_t nargs, const char *signature, const char *format,
           va_list arguments);

  ring_reader reader() { return {{words_, first_words()}, units_}; }
  uint64_t head() const { return head_->load(std::memory_order_seq_cst); }
  void set_written(uint64_t place) { rings::store(words_[rings::written_at], place); }

 private:
  // A format that the ring's file has.
  struct known_format {
    std::atomic<const char *> format = nullptr;  // set last
    const char *signature = nullptr;
    uint64_t at = 0;  // its kind and place, as a record has them
    line_arguments arguments;
  };

  size_t first_words() const {
    return rings::first_unit + static_cast<size_t>(units_) * rings::unit_words;
  }
  void map(const std::filesystem::path &file);
  bool map_file(int descriptor);
  void begin(const ring_names &names);
  void put_name(size_t at, size_t words, const std::string &text);
  const known_format *find(const char *format, const char *signature, uint32_t nargs);
  const known_format *add(const char *format, const char *signature, uint32_t nargs);
  bool put_format(std::string_view text, std::string_view letters, uint64_t &at);
  void commit(std::array<uint64_t, rings::most_words> &record, size_t words);

  uint64_t units_;
  uint64_t *words_ = nullptr;
  std::atomic<uint64_t> *head_ = nullptr;
  int file_ = -1;                         // locked as long as it is open
  std::optional<guarded_mapping> guard_;  // where there is a file
  std::string problem_;
  std::mutex lock_;  // guards the adding of formats
  size_t next_format_ = 0;
  std::array<known_format, 512> formats_;
};

}  // namespace lum_linux
