// One batch, one call to the interface manager.
#include <cerrno>
#include <cstdlib>

#include "base/memory.h"
#include "base/shared.h"
#include "base/trace.h"
#include "bounded_copy.h"
#include "lum_im/payloads.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_im";

namespace {

using payload = c_array<std::uint8_t>;

// Element i of a payload.
template <std::size_t Size>
std::span<std::uint8_t, Size> element_of(payload &elements, std::int32_t i) {
  return std::span<std::uint8_t, Size>(elements.get() + static_cast<std::size_t>(i) * Size, Size);
}

payload make_payload(std::int32_t count, std::size_t element_size) {
  return zeroed_array<std::uint8_t>(static_cast<std::size_t>(count) * element_size);
}

// The count of controllers is 8 bits wide and wraps.
void count_controllers(std::int32_t change) {
  std::atomic_ref(lum_get_ctx()->controller_count)
      .fetch_add(static_cast<std::uint8_t>(change), std::memory_order_relaxed);
}

// Names looked up for a delete batch, one 65-byte buffer each.
class name_list {
 public:
  explicit name_list(std::int32_t count)
      : names_(zeroed_array<char *>(static_cast<std::size_t>(count))) {}
  ~name_list() {
    for (std::int32_t i = 0; i < used_; ++i) std::free(names_[i]);
  }
  name_list(const name_list &) = delete;
  name_list &operator=(const name_list &) = delete;

  explicit operator bool() const { return names_ != nullptr; }
  const char *const *get() const { return names_.get(); }

  // Null when there is no memory.
  char *add_buffer() {
    char *buffer = zeroed_array<char>(LUM_DEVID_NAME_SIZE).release();
    if (buffer != nullptr) names_[used_++] = buffer;
    return buffer;
  }

 private:
  c_array<char *> names_;
  std::int32_t used_ = 0;
};

cerrno fill_delete_batch(const lum_controller_delete_request &request, name_list &names,
                         payload &elements);

}  // namespace

// After the send the request may be gone: its completion may have run already.
cerrno lum_controllers_create(lum_controller_create_request *request, const char *const *names,
                              const std::uint16_t *types) {
  if (request == nullptr || names == nullptr || types == nullptr || request->count < 1 ||
      request->entries == nullptr) {
    return EINVAL;
  }
  const std::int32_t count = request->count;
  payload elements = make_payload(count, LUM_CREATE_ELEMENT_SIZE);
  if (!elements) return ENOMEM;
  for (std::int32_t i = 0; i < count; ++i) {
    const lum_controller_create_entry &entry = request->entries[i];
    fill_create_element(element_of<LUM_CREATE_ELEMENT_SIZE>(elements, i), entry.attrs);
    LUM_INFO(185, "controller_create,rack,%d,slot,%d,instance,%d,port,%d,index,%d", entry.id.rack,
             entry.id.slot, entry.id.instance, entry.id.port, i);
  }
  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr || context->platform_cbs.im_req_by_name == nullptr) return 0;
  const cerrno rc = context->platform_cbs.im_req_by_name(
      names, types[0], elements.get(), static_cast<std::uint32_t>(count), LUM_IM_CREATE, request,
      static_cast<std::uint32_t>(count), lum_im_create_complete_resp_cb);
  if (rc != 0) {
    LUM_ERROR(186, "controller_create,send im_req_by_name_failed,count:%d,rc:0x%x[%s]", count, rc,
              cerr_strerror(rc));
    return rc;
  }
  count_controllers(count);
  LUM_INFO(187, "controller_create,send im_req_by_name_success,count,%d", count);
  return 0;
}

cerrno lum_controllers_update(lum_controller_update_request *request) {
  if (request == nullptr || request->ifhandles == nullptr) {
    LUM_ERROR(188, "invalid update req %p or ifh list %p", static_cast<const void *>(request),
              static_cast<const void *>(request == nullptr ? nullptr : request->ifhandles));
    return EINVAL;
  }
  const std::int32_t count = request->count;
  if (count < 1) {
    LUM_ERROR(189, "invalid bulk count:%d", count);
    return EINVAL;
  }
  if ((request->state_change != 0 && request->states == nullptr) ||
      (request->capability_change != 0 && request->attrs == nullptr)) {
    return EINVAL;
  }
  LUM_INFO(190, "controller_update,entry,bulk_count,%d", count);
  payload elements = make_payload(count, LUM_UPDATE_ELEMENT_SIZE);
  if (!elements) {
    LUM_ERROR(191, "failed to allocate for %d notifications", count);
    return ENOMEM;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    const update_element element = element_of<LUM_UPDATE_ELEMENT_SIZE>(elements, i);
    fill_update_element(element);
    if (request->state_change != 0) {
      set_update_state(element, request->states[i]);
      LUM_INFO(192, "controller_update,index,%d,ifh,%x,controller_state,%d", i,
               request->ifhandles[i], request->states[i]);
    }
    if (request->capability_change != 0) {
      set_update_attrs(element, request->attrs[i]);
      LUM_INFO(193, "controller_update,index,%d,ifh,%x", i, request->ifhandles[i]);
    }
  }
  const lum_ctx *context = lum_get_ctx();
  if (context != nullptr && context->platform_cbs.im_update_req_by_ifhandle != nullptr) {
    const cerrno rc = context->platform_cbs.im_update_req_by_ifhandle(
        request->ifhandles, LUM_IFTYPE_OTS, elements.get(),
        static_cast<std::uint32_t>(count) * LUM_UPDATE_ELEMENT_SIZE, LUM_IM_UPDATE, request,
        static_cast<std::uint32_t>(count), lum_im_update_complete_resp_cb);
    if (rc != 0) {
      LUM_ERROR(194, "controller_update,im_update_req_by_ifhandle_failed,bulk_count,%d,rc:0x%x[%s]",
                count, rc, cerr_strerror(rc));
      return rc;
    }
  }
  LUM_INFO(195, "controller_update_success,bulk_count,%d", count);
  return 0;
}

cerrno lum_controllers_delete(lum_controller_delete_request *request, const std::uint16_t *types) {
  if (request == nullptr || request->count <= 0 || request->ifhandles == nullptr ||
      types == nullptr) {
    return EINVAL;
  }
  const std::int32_t count = request->count;
  name_list names(count);
  payload elements = make_payload(count, LUM_DELETE_ELEMENT_SIZE);
  if (!names || !elements) return ENOMEM;
  if (const cerrno rc = fill_delete_batch(*request, names, elements); rc != 0) return rc;

  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr || context->platform_cbs.im_req_by_name == nullptr) return 0;
  const cerrno rc = context->platform_cbs.im_req_by_name(
      names.get(), types[0], elements.get(), static_cast<std::uint32_t>(count), LUM_IM_DELETE,
      request, static_cast<std::uint32_t>(count), lum_im_delete_complete_resp_cb);
  if (rc != 0) {
    LUM_ERROR(196, "controller_delete,optics_im_req_by_name_failed,rc:0x%x[%s]", rc,
              cerr_strerror(rc));
    return rc;
  }
  count_controllers(-count);
  LUM_INFO(197, "controller_delete optics_im_req_by_name bulk count:%d ifname :[%s]", count,
           names.get()[0]);
  return 0;
}

cerrno lum_get_ifname_from_ctx(std::uint32_t ifhandle, char *name) {
  ports_reader reader;
  const found_sub_port found = walk_to_ifhandle(ifhandle);
  if (found.node == nullptr) return EINVAL;
  strncpy_s(name, LUM_DEVID_NAME_SIZE, found.node->data.sub_port[found.sub_port].ifname,
            LUM_IFNAME_SIZE);
  return 0;
}

namespace {

// One unknown handle stops the whole batch.
cerrno fill_delete_batch(const lum_controller_delete_request &request, name_list &names,
                         payload &elements) {
  for (std::int32_t i = 0; i < request.count; ++i) {
    fill_delete_element(element_of<LUM_DELETE_ELEMENT_SIZE>(elements, i));
    char *name = names.add_buffer();
    if (name == nullptr) return ENOMEM;
    const std::uint32_t ifhandle = request.ifhandles[i];
    if (const cerrno rc = lum_get_ifname_from_ctx(ifhandle, name); rc != 0) {
      LUM_ERROR(198, "controller_delete, lum_get_ifname_from_ctx failed,ifh:0x%x,rc:0x%x[%s]",
                ifhandle, rc, cerr_strerror(rc));
      return rc;
    }
  }
  return 0;
}

}  // namespace
