// Where a test decides which of its threads runs: asked at every seam call of the threads it runs.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace support {

class thread_director {
 public:
  virtual bool directs_this_thread() const = 0;
  // Before a call or trace line that is otherwise recorded, with the text of the record.
  virtual void at_call(std::string_view name, const std::string &text) = 0;
  // Before any other seam call.
  virtual void at_seam() = 0;
  virtual int lock(pthread_mutex_t *mutex) = 0;
  virtual int trylock(pthread_mutex_t *mutex) = 0;
  virtual int unlock(pthread_mutex_t *mutex) = 0;
  // The pause between two polling cycles.
  virtual void sleep() = 0;
  // Until the word is woken; 0, or -1 with errno when it has changed already.
  virtual long futex_wait(const std::uint32_t *word, std::uint32_t expected) = 0;
  virtual long futex_wake(const std::uint32_t *word, int count) = 0;

 protected:
  ~thread_director() = default;
};

// Null: threads run as they like. To be set while there is one thread.
extern constinit thread_director *director;

// The director, where it runs the calling thread.
inline thread_director *directed() {
  return director != nullptr && director->directs_this_thread() ? director : nullptr;
}

}  // namespace support
