// Interface names.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/trace.h"
#include "imc.h"

using namespace lum;

static constexpr char trace_area[] = "lum_utils";

cerrno lum_construct_if_name(std::uint32_t iftype, std::uint32_t rack, std::uint32_t slot,
                             std::uint32_t instance, std::uint32_t port, std::uint32_t,
                             std::uint32_t sub_port, char *dst) {
  LUM_INFO(275, "construct ifname for rsip %d/%d/%d/%d/%d\n", rack, slot, instance, port, sub_port);
  std::memset(dst, 0, LUM_IFNAME_SIZE);
  if (iftype != LUM_IFTYPE_OTS) return 0;
  std::snprintf(dst, LUM_IFNAME_SIZE, "Ots%d_%d_%d_%d_%d", rack, slot, instance, port, sub_port);
  return 0;
}

cerrno lum_parse_if_name(const char *ifname, std::uint32_t *iftype, std::uint32_t *rack,
                         std::uint32_t *slot, std::uint32_t *instance, std::uint32_t *port,
                         std::uint32_t *sub_port_valid, std::uint32_t *sub_port) {
  const char *shown = or_empty(ifname);
  imc_ifname_info info = {};
  if (const cerrno rc = imc_ifname_parse(ifname, 0, &info); rc != 0) {
    LUM_ERROR(276, "Parsing Ifname '%s' error: %s\n", shown,
              cerr_strerror(static_cast<cerrno>(errno)));
    return rc;
  }
  if (rack != nullptr) *rack = info.rack;
  if (slot != nullptr) {
    std::uint32_t ignored_rack = 0;
    std::uint32_t slot_number = 0;
    if (const cerrno rc =
            nodeid_extract_slot_fields(info.rack, info.slot, &ignored_rack, &slot_number);
        rc != 0) {
      LUM_ERROR(277, "Ifname: '%s' parse: extracting slot error %s\n", shown,
                cerr_strerror(static_cast<cerrno>(errno)));
      return rc;
    }
    *slot = slot_number;
  }
  if (instance != nullptr) nodeid_inst_to_SPAid(info.instance, instance);
  if (port != nullptr) *port = info.port;
  if (sub_port_valid != nullptr && sub_port != nullptr && info.sub_port_valid != 0) {
    *sub_port_valid = 1;
    *sub_port = info.sub_port;
  }
  info.type[sizeof info.type - 1] = '\0';
  const bool is_ots = std::strstr(info.type, "Ots") != nullptr;
  if (!is_ots) LUM_ERROR(278, "Ifname '%s' wrong type: %d\n", shown, 0);
  if (iftype != nullptr) *iftype = is_ots ? LUM_IFTYPE_OTS : 0;
  return 0;
}
