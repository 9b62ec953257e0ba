// The readings of every port over the last hours, one sample for each poll.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "words/readings.h"

namespace lumd {

inline constexpr std::size_t sub_ports_of_a_sample = 2;

// All readings of a sub-port, in the order of words/readings.h, as the module gave them.
using sub_port_readings = std::array<uint16_t, lum_words::readings.size()>;

struct reading_sample {
  uint32_t moment = 0;  // tenths of a second since whatever its holder says
  std::array<sub_port_readings, sub_ports_of_a_sample> readings{};
};
static_assert(sizeof(reading_sample) == 24, "so much a port and poll is what history costs");

// Samples of one port, the earliest first.
struct sample_block {
  uint32_t rsip = 0;
  std::chrono::system_clock::time_point begun;  // their moments count from then
  std::vector<reading_sample> samples;
  uint32_t latest = 0;  // by which the history knows the last of them
};

// Any thread; nothing here waits for more than a short lock.
class reading_history {
 public:
  using clock = std::chrono::steady_clock;

  static constexpr std::chrono::hours span{4};
  static constexpr std::size_t most_samples = 2880;  // of a port: polls are five seconds apart
  static constexpr std::size_t samples_of_a_block = 120;

  // What one poll of a port has read, which ended at `polled`; of a poll that is known already, or
  // is earlier than one that is, nothing is taken. Without memory it is lost.
  void add(uint32_t rsip, clock::time_point polled,
           const decltype(reading_sample::readings) &readings) noexcept;

  // The samples of a port, by the clock as it is set now. May throw std::bad_alloc.
  sample_block of(uint32_t rsip) const;

  // Those that no file keeps yet, in blocks of at most ten minutes, and that it keeps them now.
  std::vector<sample_block> unkept() const;
  void mark_kept(const std::vector<sample_block> &blocks);
  void mark_nothing_kept();

  // What earlier processes have kept. What cannot be of the last hours is left out. May throw
  // std::bad_alloc.
  void take_back(const std::vector<sample_block> &earlier);

 private:
  // A ring once it is full.
  struct series {
    std::vector<reading_sample> samples;
    std::size_t first = 0;
    uint32_t kept = 0;  // the latest moment that is in a file

    const reading_sample &at(std::size_t place) const {
      return samples[(first + place) % samples.size()];
    }
    uint32_t latest() const { return samples.empty() ? 0 : at(samples.size() - 1).moment; }
    void add(const reading_sample &sample);
  };

  static uint32_t moment_of(clock::time_point time);
  static sample_block later_than(uint32_t rsip, const series &from, uint32_t moment,
                                 std::size_t most);

  mutable std::mutex mutex_;           // guards the rest
  std::map<uint32_t, series> series_;  // by rsip
};

}  // namespace lumd
