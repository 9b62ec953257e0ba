#include <cerrno>

#include "performance.h"
#include "record.h"
#include "script.h"

namespace support {

performance_stores &performance = *new performance_stores;

}  // namespace support

using namespace support;

const void *pm_ui_db_search_node(uint32_t ifhandle) {
  note("pm_ui_db_search_node", hex{ifhandle});
  const auto found = performance.pm.find(ifhandle);
  return found == performance.pm.end() ? nullptr : &found->second;
}

cerrno pm_ui_port_create(uint32_t iftype, uint32_t ifhandle, const char *name) {
  note("pm_ui_port_create", iftype, hex{ifhandle}, name);
  if (const auto code = script.verdict("pm_ui_port_create")) return *code;
  performance.pm[ifhandle] = {};
  return 0;
}

cerrno pm_ui_port_delete(uint32_t ifhandle) {
  note("pm_ui_port_delete", hex{ifhandle});
  if (const auto code = script.verdict("pm_ui_port_delete")) return *code;
  return performance.pm.erase(ifhandle) == 1 ? 0 : ENOENT;
}

cerrno pm_ui_set_optics_prim(uint32_t ifhandle, const pm_ui_optics_record *record, uint32_t valid,
                             uint32_t flags) {
  note("pm_ui_set_optics_prim", hex{ifhandle}, record->reading_3, record->reading_4[0],
       record->reading_4[1], record->reading_4[2], record->power_1, record->power_0, valid, flags);
  if (const auto code = script.verdict("pm_ui_set_optics_prim")) return *code;
  performance.pm[ifhandle] = *record;
  return 0;
}

cerrno ptah_al_port_create(uint32_t iftype, uint32_t ifhandle, const char *name, uint32_t flags,
                           uint32_t enabled, uint64_t *handle_out) {
  note("ptah_al_port_create", iftype, hex{ifhandle}, name, flags, enabled);
  if (const auto code = script.verdict("ptah_al_port_create")) return *code;
  performance.ptah[ifhandle] = {};
  if (handle_out != nullptr) *handle_out = 0x7A000000u | ifhandle;
  return 0;
}

cerrno ptah_al_port_delete(uint32_t ifhandle) {
  note("ptah_al_port_delete", hex{ifhandle});
  if (const auto code = script.verdict("ptah_al_port_delete")) return *code;
  return performance.ptah.erase(ifhandle) == 1 ? 0 : ENOENT;
}

cerrno ptah_al_port_clear_stats(uint32_t ifhandle) {
  note("ptah_al_port_clear_stats", hex{ifhandle});
  return script.answer("ptah_al_port_clear_stats");
}

cerrno ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t valid) {
  note("ptah_al_store_bmap", hex{ifhandle}, hex{bitmap}, valid);
  if (const auto code = script.verdict("ptah_al_store_bmap")) return *code;
  performance.ptah[ifhandle].bitmap = bitmap;
  return 0;
}

cerrno ptah_al_send_bmap_counter(uint32_t ifhandle) {
  note("ptah_al_send_bmap_counter", hex{ifhandle});
  return script.answer("ptah_al_send_bmap_counter");
}

cerrno ptah_al_get_all_from_ptah(uint32_t ifhandle, ptah_al_all *all) {
  note("ptah_al_get_all_from_ptah", hex{ifhandle});
  if (const auto code = script.verdict("ptah_al_get_all_from_ptah")) return *code;
  const auto found = performance.ptah.find(ifhandle);
  if (found == performance.ptah.end()) return ENOENT;
  *all = found->second;
  return 0;
}
