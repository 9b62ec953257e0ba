// The interface manager's answers, on its own thread.
#include <algorithm>
#include <cstdlib>

#include "base/fatal.h"
#include "base/trace.h"
#include "lum_controller_interface/lum_controller_interface.h"

using namespace lum;

static constexpr char trace_area[] = "lum_im";

namespace {

// Elements are counted by a 16-bit index.
constexpr std::int64_t max_elements = 0x10000;

constexpr wiredef_allocator standard_allocator = {
    [](std::uint64_t size) { return std::malloc(size); }, std::free};

constexpr const char *create_complete =
    "void lum_im_create_complete_resp_cb(imca_reply_info_type *, void *)";

cerrno result_of(const imca_reply_info_type &reply, std::int64_t i) {
  return reply.results == nullptr ? 0 : reply.results[i];
}

const char *name_of(const imca_reply_info_type &reply, std::int64_t i) {
  return reply.names == nullptr ? nullptr : reply.names[i];
}

// Of an update or delete batch, for its trace; 0 when it has none.
template <typename Request>
std::uint32_t first_ifhandle(const Request *request) {
  const bool has_one = request != nullptr && request->ifhandles != nullptr && request->count > 0;
  return has_one ? request->ifhandles[0] : 0;
}

void create_again(const imca_reply_info_type &reply, std::int64_t failed);
std::uint32_t decode_ifhandle(const imca_reply_info_type &reply, std::int64_t i);

}  // namespace

// A failed element ends the answer there, its request neither completed nor freed.
void lum_im_create_complete_resp_cb(imca_reply_info_type *reply, void *context) {
  if (reply == nullptr || context == nullptr) {
    LUM_ERROR(199, "invalid info:%p or cb context:%p", static_cast<const void *>(reply), context);
    return;
  }
  auto *request = static_cast<lum_controller_create_request *>(context);
  LUM_INFO(200, "Inside %s, IM OC-Create Response with Count %zd", __func__,
           static_cast<ssize_t>(reply->count));
  const std::int64_t count = std::min(reply->count, max_elements);
  for (std::int64_t i = 0; i < count; ++i) {
    const cerrno result = result_of(*reply, i);
    const char *name = name_of(*reply, i);
    if (result != 0 || reply->batch_error != 0) {
      LUM_ERROR(201, "Error in creation of %s is failed:rc:0x%x[%s]", or_empty(name), result,
                cerr_strerror(result));
      if (result == LUM_IM_ELEMENT_BENIGN) continue;
      create_again(*reply, i);
      return;
    }
    const std::uint32_t ifhandle = decode_ifhandle(*reply, i);
    if (i < request->count && request->entries != nullptr) {
      request->entries[i].id.ifhandle = ifhandle;
    }
    if (reply->ifhandles != nullptr) reply->ifhandles[i] = ifhandle;
    LUM_INFO(202, "creation of interface 0x%x[%s] is done", ifhandle, or_empty(name));
  }
  lum_controller_create_done(request);
}

void lum_im_update_complete_resp_cb(imca_reply_info_type *, void *context) {
  auto *request = static_cast<lum_controller_update_request *>(context);
  LUM_INFO(203,
           "icpe update cb operations:0x%p bulk count:%d first ifh :0x%xstate change:%d "
           "capability change:%d",
           static_cast<const void *>(request), request == nullptr ? -1 : request->count,
           first_ifhandle(request), request == nullptr ? 0 : request->state_change,
           request == nullptr ? 0 : request->capability_change);
  lum_controller_update_done(request);
}

void lum_im_delete_complete_resp_cb(imca_reply_info_type *, void *context) {
  auto *request = static_cast<lum_controller_delete_request *>(context);
  LUM_INFO(204, "icpe delete cb operations:0x%p bulk count:%d first ifh :0x%x",
           static_cast<const void *>(request), request == nullptr ? -1 : request->count,
           first_ifhandle(request));
  lum_controller_delete_done(request);
}

namespace {

// A failed element with a proper name is left at that. One whose name cannot be parsed has the
// controllers created again, at whatever place the parsing came to.
void create_again(const imca_reply_info_type &reply, std::int64_t failed) {
  std::uint32_t rack = 0, slot = 0, instance = 0, port = 0;
  if (lum_parse_if_name(name_of(reply, failed), nullptr, &rack, &slot, &instance, &port, nullptr,
                        nullptr) == 0) {
    return;
  }
  const auto count = static_cast<std::uint32_t>(reply.count);
  LUM_INFO(205, "Triggering OC-Controller CREATE for inst %d, with number of Controllers = %d", 0,
           count);
  create_controllers(rack, slot, 0, count, std::span(&port, 1));
}

std::uint32_t decode_ifhandle(const imca_reply_info_type &reply, std::int64_t i) {
  const std::uint8_t *data = reply.data == nullptr ? nullptr : reply.data[i];
  if (data == nullptr) fatal("0", trace_area, 621, create_complete);
  const std::uint32_t size = reply.data_sizes == nullptr ? 0 : reply.data_sizes[i];
  wiredef_icpe_ext_intf_create_reply_data decoded = {};
  const cerrno rc =
      wiredef_icpe_ext_intf_create_reply_data_decode_ext(data, size, &decoded, &standard_allocator);
  if (rc != 0 || !wiredef_icpe_ext_intf_create_reply_data_have_required(&decoded)) {
    fatal("CERR_IS_OK(rc) && wiredef_icpe_ext_intf_create_reply_data_have_required( &decoded_data)",
          trace_area, 631, create_complete);
  }
  const std::uint32_t ifhandle = decoded.ifhandle;
  wiredef_icpe_ext_intf_create_reply_data_free_ext(&decoded, &standard_allocator);
  return ifhandle;
}

}  // namespace
