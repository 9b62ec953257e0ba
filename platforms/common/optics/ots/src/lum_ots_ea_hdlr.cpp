// The entity agent's interface operations, one entry each.
#include "base/bytes.h"
#include "base/trace.h"
#include "ea_server.h"
#include "lum_utils/lum_utils.h"

using namespace lum;

static constexpr char trace_area[] = "lum_ots_ea_hdlr";

cerrno lum_ots_ea_hdlrs(std::uint32_t operation, const void *entry, void *) {
  const const_record_of<EA_REQUEST_ENTRY_SIZE> record(static_cast<const std::uint8_t *>(entry),
                                                      EA_REQUEST_ENTRY_SIZE);
  const char *name = ea_operation_name(operation);
  LUM_INFO(67, "***Servicing %s for Optics ifhandle 0x%x admin status = %d state ready = %d ***\n",
           name == nullptr ? "(null)" : name, get<EA_REQUEST_ENTRY_IFHANDLE, std::uint32_t>(record),
           get<EA_REQUEST_ENTRY_ADMIN, std::uint8_t>(record),
           get<EA_REQUEST_ENTRY_STATE_READY, std::uint8_t>(record));
  return 0;
}

cerrno lum_ots_handle_admin_update() { return 0; }

cerrno lum_ots_fill_hw_info() { return 0; }
