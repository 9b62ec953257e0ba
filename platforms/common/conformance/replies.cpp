// What the interface manager answers, and the codec of its create replies: the callbacks
// im_req_by_name and im_update_req_by_ifhandle, and imca.h.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

#include "library.h"
#include "lum/controllers.h"
#include "lum/lifecycle.h"

namespace conformance {
namespace {

std::atomic<int64_t> blocks{0};
void *allocate(uint64_t size) {
  ++blocks;
  return std::malloc(size);
}
void release(void *block) {
  if (block != nullptr) --blocks;
  std::free(block);
}
constexpr wiredef_allocator allocator = {allocate, release};

struct decoding {
  cerrno rc = 0;
  bool complete = false;
  uint32_t ifhandle = 0;
};

decoding decode(const uint8_t *data, uint32_t size) {
  wiredef_icpe_ext_intf_create_reply_data reply = {};
  decoding result;
  result.rc = wiredef_icpe_ext_intf_create_reply_data_decode_ext(data, size, &reply, &allocator);
  if (result.rc != 0) return result;
  result.complete = wiredef_icpe_ext_intf_create_reply_data_have_required(&reply) != 0;
  result.ifhandle = reply.ifhandle;
  wiredef_icpe_ext_intf_create_reply_data_free_ext(&reply, &allocator);
  return result;
}

// Once, by a thread of its own.
void require_one_answer(const batch &seen, uint32_t operation) {
  require(seen.operation == operation, "the newest batch is of operation 0x%x", seen.operation);
  require(seen.completions == 1, "the completion is called %u times", seen.completions);
  require(seen.answerer != seen.sender, "the completion is called on the sender's thread");
  require(seen.batch_error == 0, "the whole batch fails with %u", seen.batch_error);
}

void require_created(const batch &seen) {
  require(seen.elements.size() == seen.count, "%zu of %u elements are answered",
          seen.elements.size(), seen.count);
  for (uint32_t i = 0; i < seen.count; ++i) {
    const answered_element &element = seen.elements[i];
    if (seen.names[i].empty()) continue;
    require(element.result == 0, "the creation of %s fails with %u", seen.names[i].c_str(),
            element.result);
    const decoding decoded =
        decode(element.data.data(), static_cast<uint32_t>(element.data.size()));
    require(decoded.rc == 0, "the reply for %s is not decoded: %u", seen.names[i].c_str(),
            decoded.rc);
    require(decoded.complete, "the reply for %s lacks what is required", seen.names[i].c_str());
    require(decoded.ifhandle != 0, "%s has the handle 0", seen.names[i].c_str());
  }
}

void a_creation_is_answered_once() {
  bring_up();
  const batch seen = newest_batch();
  require_one_answer(seen, LUM_IM_CREATE);
  require_created(seen);
}

void controllers_have_handles_of_their_own() {
  bring_up();
  std::set<uint32_t> handles;
  for (const answered_element &one : newest_batch().elements) {
    handles.insert(decode(one.data.data(), static_cast<uint32_t>(one.data.size())).ifhandle);
  }
  require(handles.size() == LUM_SUB_PORTS, "%zu handles for %u controllers", handles.size(),
          uint32_t{LUM_SUB_PORTS});
}

void what_is_sent_is_copied() {
  bring_up();
  const batch seen = newest_batch();
  for (uint32_t i = 0; i < seen.count && i < seen.elements.size(); ++i) {
    const std::string &name = seen.elements[i].name;
    require(name.empty() || name == seen.names[i], "the answer for %s names \"%.40s\"",
            seen.names[i].c_str(), name.c_str());
  }
}

void an_empty_element_is_passed_over() {
  bring_up();
  const auto [slot, instance, port] = port_cage();
  const uint32_t ports[] = {port, port + 1};  // the second is not in the database
  const cerrno rc = lum_ots_controllers_create(0, slot, instance, 2, ports);
  require(rc == 0, "a batch with empty elements is refused: %u", rc);
  const batch seen = newest_batch();
  require_one_answer(seen, LUM_IM_CREATE);
  require(seen.count == 4, "the newest batch has %u elements", seen.count);
  require_created(seen);
  for (uint32_t i = 2; i < seen.count; ++i) {
    require(seen.elements[i].result == LUM_IM_ELEMENT_BENIGN,
            "an element without a name is answered with 0x%x", seen.elements[i].result);
  }
}

void an_update_is_answered_once() {
  bring_up();
  newest_batch();
  const auto [slot, instance, port] = port_cage();
  require(lum_update_port(0, slot, instance, port, 1) == 0, "the port cannot be updated");
  require_one_answer(newest_batch(), LUM_IM_UPDATE);
}

void a_deletion_is_answered_once() {
  bring_up();
  newest_batch();
  const auto [slot, instance, port] = port_cage();
  const cerrno rc = lum_delete_ports(0, slot, instance, 1, &port);
  require(rc == 0, "the port cannot be deleted: %u", rc);
  require_one_answer(newest_batch(), LUM_IM_DELETE);
  require(comes([] { return controllers_told() == 0; }), "%u controllers are left",
          controllers_told());
}

// The reply ends where nothing can be read behind it.
class guarded_bytes {
 public:
  guarded_bytes() {
    pages_ = static_cast<uint8_t *>(
        mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    require(pages_ != MAP_FAILED && mprotect(pages_ + page_, page_, PROT_NONE) == 0, "no memory");
  }
  const uint8_t *put(const uint8_t *bytes, size_t size) {
    uint8_t *first = pages_ + page_ - size;
    std::memcpy(first, bytes, size);
    return first;
  }

 private:
  const size_t page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  uint8_t *pages_;
};

void require_safe(const decoding &decoded, const char *what) {
  require(decoded.rc == 0 || decoded.rc == EINVAL || decoded.rc == ENOMEM,
          "%s is decoded with %u, and not 0, 12 or 22", what, decoded.rc);
  require(blocks == 0, "%s leaves %lld blocks of memory behind", what,
          static_cast<long long>(blocks));
}

void any_bytes_are_decoded_without_harm() {
  bring_up();
  std::vector<uint8_t> reply = newest_batch().elements.at(0).data;
  require(!reply.empty() && reply.size() < 4096, "a create reply has %zu bytes", reply.size());
  guarded_bytes bytes;
  for (size_t size = 0; size <= reply.size(); ++size) {
    const decoding cut = decode(bytes.put(reply.data(), size), static_cast<uint32_t>(size));
    require_safe(cut, "a reply that is cut short");
    require(size > 0 || cut.rc != 0 || !cut.complete, "a reply without a byte is complete");
  }
  for (size_t place = 0; place < reply.size(); ++place) {
    for (const int value : {0x00, 0x7F, 0x80, 0xFF}) {
      std::vector<uint8_t> changed = reply;
      changed[place] = static_cast<uint8_t>(value);
      require_safe(
          decode(bytes.put(changed.data(), changed.size()), static_cast<uint32_t>(changed.size())),
          "a reply with a wrong byte");
    }
  }
}

}  // namespace

std::vector<check> reply_checks() {
  return {{"interface_manager.answers_a_creation_once", a_creation_is_answered_once},
          {"interface_manager.gives_each_a_handle", controllers_have_handles_of_their_own},
          {"interface_manager.copies_what_is_sent", what_is_sent_is_copied},
          {"interface_manager.passes_over_empty_elements", an_empty_element_is_passed_over},
          {"interface_manager.answers_an_update_once", an_update_is_answered_once},
          {"interface_manager.answers_a_deletion_once", a_deletion_is_answered_once},
          {"replies.of_any_bytes_do_no_harm", any_bytes_are_decoded_without_harm}};
}

}  // namespace conformance
