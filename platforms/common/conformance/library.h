// liblum on the platform, with everything between the two written down: batches and their answers,
// controllers that the client is told of, reads of modules.
#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "check.h"

namespace conformance {

struct answered_element {
  cerrno result = 0;
  std::string name;
  std::vector<uint8_t> data;
};

// A batch as it was sent, and what the last call of its completion said.
struct batch {
  uint32_t operation = 0;
  uint32_t count = 0;
  std::vector<std::string> names;  // "" for an empty element
  std::thread::id sender;
  uint32_t completions = 0;
  std::thread::id answerer;
  uint32_t batch_error = 0;
  std::vector<answered_element> elements;
};

// Starts the platform and liblum and creates the port. Returns once both controllers are told of.
void bring_up();
// Waits until the newest batch is answered, and a little more, since a second answer is wrong.
batch newest_batch();
// Controllers told of as created, less those as deleted.
uint32_t controllers_told();
// Reads of modules that succeeded on a thread that neither sends nor answers: the polling thread.
uint32_t polled_reads();

}  // namespace conformance
