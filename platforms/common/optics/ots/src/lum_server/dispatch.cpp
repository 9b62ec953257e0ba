// Batches of the entity agent.
#include <cstring>
#include <span>

#include "base/bytes.h"
#include "base/shared.h"
#include "base/trace.h"
#include "ea_server.h"
#include "lum_server/lum_server.h"

using namespace lum;

static constexpr char trace_area[] = "lum_server";

namespace {

enum ea_operation : std::uint32_t { resync_end = 0, create = 1, update = 2, delete_ = 4 };

using request_head = const_record_of<EA_REQUEST_ENTRIES>;
using request_entry = const_record_of<EA_REQUEST_ENTRY_SIZE>;

void serve(std::uint32_t operation, request_entry entry, std::uint8_t *reply);

}  // namespace

void lum::dispatch_ea_batch(std::uint32_t operation, const void *request, void *reply) {
  const auto *bytes = static_cast<const std::uint8_t *>(request);
  const std::uint32_t count =
      request == nullptr || reply == nullptr
          ? 0
          : get<EA_REQUEST_COUNT, std::uint32_t>(request_head(bytes, EA_REQUEST_ENTRIES));
  LUM_INFO(264, "Inside Dispatch Handler, received oper-type %d and interfaces %d\n", operation,
           count);
  for (std::size_t i = 0; i < count; ++i) {
    const request_entry entry(bytes + EA_REQUEST_ENTRIES + i * EA_REQUEST_ENTRY_SIZE,
                              EA_REQUEST_ENTRY_SIZE);
    std::uint8_t *answer =
        static_cast<std::uint8_t *>(reply) + EA_REPLY_ENTRIES + i * EA_REPLY_ENTRY_SIZE;
    *answer = 1;
    serve(operation, entry, answer);
  }
  if (operation == create || operation == update) lum_wakeup_provisioning_thread();
}

namespace {

void end_resync(lum_ctx &context) {
  LUM_INFO(265,
           "EA resync completed ea_replay_required_bitmap = 0x%x is_resync_with_ea_complete = %d "
           "\n",
           shared_load(context.ea_replay_required_bitmap),
           shared_load(context.is_resync_with_ea_complete));
  shared_and(context.ea_replay_required_bitmap, ~1u);
  if (shared_load(context.ea_replay_required_bitmap) == 0) {
    shared_store(context.is_resync_with_ea_complete, 1);
  }
}

void record_created(const char *ifname, std::uint32_t ifhandle) {
  LUM_INFO(266, "Create Oper: Ifhandle : 0x%x, Ifname: %s\n", ifhandle, ifname);
  if (const cerrno rc = lum_update_ifhandle(ifname, ifhandle); rc != 0) {
    LUM_ERROR(267, "failed to create dev map. intf_name %s ifhandle 0x%x rc %d\n", ifname, ifhandle,
              rc);
    return;
  }
  lum_modules_port_create(ifname, ifname);
}

void serve(std::uint32_t operation, request_entry entry, std::uint8_t *reply) {
  const auto ifhandle = get<EA_REQUEST_ENTRY_IFHANDLE, std::uint32_t>(entry);
  if (operation == resync_end) {
    end_resync(*lum_get_ctx());
    return;
  }
  if (operation == create) {
    char ifname[LUM_IFNAME_SIZE + 1] = {};  // the agent's name may lack its NUL
    const auto name = entry.subspan<EA_REQUEST_ENTRY_IFNAME, LUM_IFNAME_SIZE>();
    std::memcpy(ifname, name.data(), name.size());
    record_created(ifname, ifhandle);
  } else if (operation == delete_) {
    LUM_INFO(268, "Delete Oper: Ifhandle : 0x%x\n", ifhandle);
  }
  lum_ots_ea_hdlrs(operation, entry.data(), reply);
}

}  // namespace
