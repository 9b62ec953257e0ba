// Counts the deletions and creations that name a port, so that an observer knows for how long none
// of them could have changed anything.
#pragma once

#include <atomic>
#include <cstdint>

namespace stress {

class call_count {
 public:
  static constexpr uint64_t one_under_way = ~uint64_t{0};

  void begin() { begun_.fetch_add(1); }
  void end() { ended_.fetch_add(1); }

  // A moment to compare with later. A call that began before the second look has not ended before
  // the first, so equal counts mean that none is under way.
  uint64_t now() const {
    const uint64_t ended = ended_.load();
    return begun_.load() == ended ? ended : one_under_way;
  }

  // Whether exactly `calls` have begun since that moment, in which none was under way.
  bool only(uint64_t calls, uint64_t since) const {
    return since != one_under_way && begun_.load() == since + calls;
  }
  bool none(uint64_t since) const { return only(0, since); }

 private:
  std::atomic<uint64_t> begun_{0};
  std::atomic<uint64_t> ended_{0};
};

struct port_calls {
  call_count deletions;
  call_count creations;
};

struct port_moment {
  uint64_t deletions = call_count::one_under_way;
  uint64_t creations = call_count::one_under_way;
};

inline port_moment moment_of(const port_calls &calls) {
  return {calls.deletions.now(), calls.creations.now()};
}

}  // namespace stress
