#include "traces/ring.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace lum_linux {

using namespace rings;

namespace {

constexpr size_t most_probes = 16;
constexpr mode_t ring_mode = 0640;

static_assert(sizeof(std::atomic<uint64_t>) == sizeof(uint64_t) &&
              std::atomic<uint64_t>::is_always_lock_free);

uint64_t units_for(uint32_t bytes) {
  const uint64_t units = std::bit_floor(uint64_t{bytes} / (unit_words * word_bytes));
  return std::clamp<uint64_t>(units, smallest_units, largest_units);
}

uint64_t caller_thread() {
  static thread_local const auto id = static_cast<uint64_t>(::gettid());
  return id;
}

int64_t now_ns() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Where to look for a format first.
size_t place_for(const char *format, const char *signature) {
  constexpr uintptr_t factor = 0x9E3779B97F4A7C15;
  constexpr unsigned shift = 40;
  const auto both = reinterpret_cast<uintptr_t>(format) ^ reinterpret_cast<uintptr_t>(signature)
                                                              << 7;
  return both * factor >> shift;
}

// Arguments behind one another, as the layout has them.
class record_writer {
 public:
  explicit record_writer(std::array<uint64_t, most_words> &words) : words_(words) {}

  void number(uint64_t value) { words_[size_++] = value; }

  void text(const char *text, size_t precision) {
    if (text == nullptr) {
      words_[size_++] = null_text;
      return;
    }
    const size_t length = ::strnlen(text, std::min(precision, left_));
    const size_t count = (length_bytes + length + word_bytes - 1) / word_bytes;
    words_[size_ + count - 1] = 0;
    auto *const bytes = reinterpret_cast<char *>(words_.data() + size_);
    const auto stored = static_cast<uint16_t>(length);
    std::memcpy(bytes, &stored, sizeof stored);
    std::memcpy(bytes + length_bytes, text, length);
    size_ += count;
    left_ -= length;
  }

  size_t size() const { return size_; }

 private:
  std::array<uint64_t, most_words> &words_;
  size_t size_ = arguments_at;
  size_t left_ = longest_text;  // bytes of texts that a line can still show
};

}  // namespace

ring::ring(const std::filesystem::path &file, uint32_t bytes, const ring_names &names)
    : units_(units_for(bytes)) {
  map(file);
  begin(names);
}

ring::ring(uint32_t bytes, const ring_names &names, std::string why)
    : units_(units_for(bytes)), problem_(std::move(why)) {
  map({});
  begin(names);
}

ring::~ring() {
  guard_.reset();
  ::munmap(words_, first_words() * word_bytes);
  give_up_file();
}

void ring::give_up_file() {
  if (file_ >= 0) ::close(file_);
  file_ = -1;
}

void ring::map(const std::filesystem::path &file) {
  if (!file.empty()) {
    file_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, ring_mode);
    if (file_ >= 0 && map_file(file_)) return;
    if (problem_.empty()) problem_ = file.string() + ": " + std::strerror(errno);
    if (file_ >= 0) ::close(file_);
    file_ = -1;
  }
  void *const place = ::mmap(nullptr, first_words() * word_bytes, PROT_READ | PROT_WRITE,
                             MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (place == MAP_FAILED) throw std::system_error(errno, std::generic_category());
  words_ = static_cast<uint64_t *>(place);
}

bool ring::map_file(int descriptor) {
  const auto bytes = static_cast<off_t>(first_words() * word_bytes);
  struct stat found = {};
  if (::fstat(descriptor, &found) != 0) return false;
  if (!S_ISREG(found.st_mode)) {
    errno = EINVAL;
    return false;
  }
  if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) return false;
  if (::ftruncate(descriptor, 0) != 0) return false;
  if (const int code = ::posix_fallocate(descriptor, 0, bytes); code != 0) {
    static_cast<void>(::ftruncate(descriptor, 0));
    errno = code;
    return false;
  }
  void *const place = ::mmap(nullptr, first_words() * word_bytes, PROT_READ | PROT_WRITE,
                             MAP_SHARED | MAP_POPULATE, descriptor, 0);
  if (place == MAP_FAILED) return false;
  guard_.emplace(place, first_words() * word_bytes);
  if (!guard_->is_guarded()) {
    guard_.reset();
    ::munmap(place, first_words() * word_bytes);
    errno = EMFILE;
    return false;
  }
  words_ = static_cast<uint64_t *>(place);
  return true;
}

void ring::begin(const ring_names &names) {
  head_ = reinterpret_cast<std::atomic<uint64_t> *>(words_ + head_at);
  store(words_[units_at], units_);
  store(words_[points_at], names.points);
  put_name(channel_at, channel_words, names.channel);
  put_name(process_at, process_words, names.process);
  put_name(digest_at, digest_words, names.digest);
  std::atomic_ref(words_[magic_at]).store(magic, std::memory_order_release);
}

void ring::name_process(const std::string &process) {
  put_name(process_at, process_words, process);
}

void ring::put_name(size_t at, size_t words, const std::string &text) {
  for (size_t i = 0; i < words; ++i) {
    uint64_t word = 0;
    if (i * word_bytes < text.size()) {
      std::memcpy(&word, text.data() + i * word_bytes,
                  std::min(word_bytes, text.size() - i * word_bytes));
    }
    store(words_[at + i], word);
  }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
bool ring::put(uint32_t point, uint32_t nargs, const char *signature, const char *format,
               va_list arguments) {
  std::array<uint64_t, most_words> record;
  record_writer writer(record);
  record[time_at] = static_cast<uint64_t>(now_ns());
  record[origin_at] = caller_thread() << 32 | point;
  const known_format *const known = find(format, signature, nargs);
  if (known == nullptr) {
    std::array<char, longest_text + 1> text;
    if (std::vsnprintf(text.data(), text.size(), format, arguments) < 0) return false;
    record[place_at] = kind_text << kind_shift;
    writer.text(text.data(), longest_text);
  } else {
    record[place_at] = known->at;
    const line_arguments &of = known->arguments;
    for (size_t i = 0; i < of.count; ++i) {
      if (of.letters[i] == 's') {
        writer.text(va_arg(arguments, const char *), of.precision[i]);
      } else if (of.letters[i] == 'D') {
        writer.number(va_arg(arguments, uint64_t));
      } else {
        writer.number(va_arg(arguments, uint32_t));
      }
    }
  }
  commit(record, writer.size());
  return true;
}
#pragma GCC diagnostic pop

void ring::commit(std::array<uint64_t, most_words> &record, size_t words) {
  const uint64_t length = (words + unit_words - 1) / unit_words;
  const uint64_t place = head_->fetch_add(place_of(length, 1), std::memory_order_seq_cst);
  const uint64_t mask = units_ * unit_words - 1;
  const uint64_t begin = units_of(place) * unit_words;
  uint64_t *const data = words_ + first_unit;
  std::atomic_ref commit_word(data[begin & mask]);
  commit_word.store(0, std::memory_order_relaxed);
  record[place_at] |= count_of(place) << unit_bits;
  checksum sum(units_of(place));
  sum.add(words);
  for (size_t i = 1; i < words; ++i) {
    sum.add(record[i]);
    store(data[(begin + i) & mask], record[i]);
  }
  commit_word.store(uint64_t{sum.value()} << 32 | words, std::memory_order_release);
}

// Formats are constant texts, so that their addresses tell them apart.
const ring::known_format *ring::find(const char *format, const char *signature, uint32_t nargs) {
  if (signature == nullptr) return nullptr;
  const size_t first = place_for(format, signature);
  for (size_t i = 0; i < most_probes; ++i) {
    const known_format &one = formats_[(first + i) % formats_.size()];
    const char *const found = one.format.load(std::memory_order_acquire);
    if (found == nullptr) return add(format, signature, nargs);
    if (found == format && one.signature == signature) return &one;
  }
  return nullptr;
}

const ring::known_format *ring::add(const char *format, const char *signature, uint32_t nargs) {
  line_arguments known;
  const std::string_view text(format), letters(signature);
  if (letters.size() != nargs || !understand(text, letters, known)) return nullptr;
  const std::lock_guard hold(lock_);
  const size_t first = place_for(format, signature);
  for (size_t i = 0; i < most_probes; ++i) {
    known_format &place = formats_[(first + i) % formats_.size()];
    const char *const there = place.format.load(std::memory_order_relaxed);
    if (there == format && place.signature == signature) return &place;
    if (there != nullptr) continue;
    if (!put_format(text, letters, place.at)) return nullptr;
    place.signature = signature;
    place.arguments = known;
    place.format.store(format, std::memory_order_release);
    return &place;
  }
  return nullptr;
}

bool ring::put_format(std::string_view text, std::string_view letters, uint64_t &at) {
  std::array<uint64_t, longest_text / word_bytes + most_arguments> words{};
  const size_t length = (text.size() + letters.size() + word_bytes - 1) / word_bytes;
  if (text.size() >= longest_text || next_format_ + 1 + length > format_words) return false;
  auto *const bytes = reinterpret_cast<char *>(words.data());
  std::copy(text.begin(), text.end(), bytes);
  std::copy(letters.begin(), letters.end(), bytes + text.size());
  const uint64_t lengths = letters.size() << 16 | text.size();
  checksum sum(lengths);
  uint64_t *const into = words_ + header_words + next_format_;
  for (size_t i = 0; i < length; ++i) {
    sum.add(words[i]);
    store(into[i + 1], words[i]);
  }
  store(into[0], uint64_t{sum.value()} << 32 | lengths);
  at = next_format_;
  next_format_ += 1 + length;
  return true;
}

}  // namespace lum_linux
