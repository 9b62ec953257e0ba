// What answers have taken goes back to the system: many at once take many times what the driver has
// while nobody asks.
#pragma once

namespace lumd {

// To be called once, before any thread is started.
void spare_memory();

// Stands as long as an answer is made. The last of several at once gives back what is free. Any
// thread.
class answer_memory {
 public:
  answer_memory();
  ~answer_memory();
  answer_memory(const answer_memory &) = delete;
  answer_memory &operator=(const answer_memory &) = delete;
};

}  // namespace lumd
