// The interface manager: collects the batches, and answers them when the test says so.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "imca.h"
#include "lum.h"
#include "spin.h"

namespace support {

struct batch {
  uint32_t operation = 0;  // LUM_IM_CREATE, LUM_IM_DELETE or LUM_IM_UPDATE
  uint32_t count = 0;
  uint32_t iftype = 0;
  uint32_t payload_argument = 0;                  // an element count, or the size of an update
  std::vector<std::optional<std::string>> names;  // create and delete; an empty element has none
  std::vector<uint32_t> ifhandles;                // update
  std::vector<uint8_t> payload;
  void *context = nullptr;
  imca_completion complete = nullptr;
  bool answered = false;

  // Bytes of one payload element.
  std::vector<uint8_t> element(uint32_t index) const;
};

// What the manager says of one element.
struct element_reply {
  cerrno result = 0;
  std::optional<std::string> name;  // null without
  std::vector<uint8_t> data;        // encoded create reply
  bool without_data = false;        // a null pointer in place of the data
};

struct batch_reply {
  cerrno batch_error = 0;
  std::vector<element_reply> elements;
  std::optional<int64_t> count;  // by default the number of elements
};

class interface_manager {
 public:
  // The batches accepted so far. A reference stays valid.
  std::deque<batch> batches;

  // Success for every element: known names keep their handles, others get the next one.
  batch_reply success(const batch &of);
  // Runs the completion, on a thread of its own, and returns after it. The ifhandles that the
  // library wrote into the reply come back.
  std::vector<uint32_t> answer(batch &which);
  std::vector<uint32_t> answer(batch &which, const batch_reply &reply);
  // Success, on the calling thread.
  void answer_here(batch &which);
  // Answers everything not yet answered, also what comes in meanwhile.
  void answer_all();
  // Answers every batch with success before its request call returns.
  bool answers_at_once = false;

  // The handle of an interface name, given now if it has none.
  uint32_t handle_of(const std::string &name);

  cerrno take(const char *call, batch incoming);

 private:
  static std::vector<uint32_t> complete(batch &which, const batch_reply &reply);

  spin lock_;
  std::map<std::string, uint32_t> handles_;
  uint32_t last_handle_ = 0x1000;
};

extern interface_manager &im;

// Encoded create replies.
std::vector<uint8_t> good_reply(uint32_t ifhandle);
std::vector<uint8_t> reply_without_handle();
std::vector<uint8_t> undecodable_reply();

}  // namespace support
