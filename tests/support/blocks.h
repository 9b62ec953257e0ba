// Who frees what: the blocks that the library takes with calloc.
#pragma once

#include <cstddef>
#include <vector>

namespace support {

// Watches every block taken from its making on, from any thread. One at a time.
class block_watch {
 public:
  block_watch();
  ~block_watch();
  block_watch(const block_watch &) = delete;
  block_watch &operator=(const block_watch &) = delete;

  // The sizes of the blocks not yet freed, in the order they were taken.
  std::vector<std::size_t> live() const;
  // How many have been taken.
  std::size_t taken() const;
  // Frees what is left, once the test has said that it is left on purpose.
  void release();
};

// For the seams.
void note_block(void *block, std::size_t size);
void forget_block(void *block);

}  // namespace support
