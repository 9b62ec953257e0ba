// Conversions between a port's identities, and from them to its data.
#include "base/fatal.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"

#include <cerrno>

using namespace lum;

static constexpr char trace_area[] = "lum_ports_db";

static bool name_of_ifhandle(std::uint32_t ifhandle, char (&name)[LUM_DEVID_NAME_SIZE]);

namespace {

// Where a name says its interface is.
struct parsed_name {
  cerrno rc;
  std::uint32_t rsip;
  std::uint32_t sub_port_valid;
  std::uint32_t sub_port;
};

parsed_name parse(const char *ifname) {
  std::uint32_t rack = 0, slot = 0, instance = 0, port = 0;
  parsed_name name = {};
  name.rc = lum_parse_if_name(ifname, nullptr, &rack, &slot, &instance, &port, &name.sub_port_valid,
                              &name.sub_port);
  name.rsip = pack_rsip(rack, slot, instance, port);
  return name;
}

// Copies the device id that a name means. `unknown_port` is the answer for a port that is not in
// the database.
cerrno copy_device_id(const parsed_name &name, lum_device_id_td *out, cerrno unknown_port,
                      const char *function) {
  ports_reader reader;
  const lum_port_node_info *node = find_port(name.rsip);
  if (node == nullptr) return unknown_port;
  if (name.sub_port_valid == 0) fatal("sub_port_exists", trace_area, __LINE__, function);
  if (name.sub_port >= LUM_SUB_PORTS) return LUM_NOT_FOUND;
  *out = shared_copy(node->data.device_id[name.sub_port]);
  return 0;
}

}  // namespace

cerrno lum_ports_db_rsip2port_handle(std::uint32_t rsip, std::uint32_t *port_handle) {
  ports_reader reader;
  const lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) return LUM_NOT_FOUND;
  *port_handle = shared_load(node->port_handle);
  return 0;
}

cerrno lum_ports_db_port_handle2rsip(std::uint32_t port_handle, std::uint32_t *rsip) {
  ports_reader reader;
  const lum_port_node_info *node = find_port_by_handle(port_handle);
  if (node == nullptr) return LUM_NOT_FOUND;
  *rsip = node->rsip;
  return 0;
}

cerrno lum_ports_db_ifh2devid(std::uint32_t ifhandle, lum_device_id_td *out) {
  char name[LUM_DEVID_NAME_SIZE] = {};
  if (!name_of_ifhandle(ifhandle, name)) return LUM_NOT_FOUND;
  const parsed_name parsed = parse(name);
  if (parsed.rc != 0) {
    LUM_ERROR(224, "parse_if_name error %d\n", parsed.rc);
    return parsed.rc;
  }
  return copy_device_id(parsed, out, 0, __func__);
}

cerrno lum_ports_db_ifname2devid(const char *ifname, lum_device_id_td *out) {
  const parsed_name parsed = parse(ifname);
  if (parsed.rc != 0) return parsed.rc;
  return copy_device_id(parsed, out, LUM_NOT_FOUND, __func__);
}

cerrno lum_ports_db_port_handle2devid(std::uint32_t port_handle, std::uint32_t sub_port,
                                      lum_device_id_td *out) {
  ports_reader reader;
  const lum_port_node_info *node = find_port_by_handle(port_handle);
  if (node == nullptr || sub_port >= LUM_SUB_PORTS) return ENOENT;
  *out = shared_copy(node->data.device_id[sub_port]);
  return 0;
}

cerrno lum_get_port_info(const char *ifname, lum_port_data **out) {
  const parsed_name parsed = parse(ifname);
  if (parsed.rc != 0) return parsed.rc;
  ports_reader reader;
  lum_port_node_info *node = find_port(parsed.rsip);
  if (node == nullptr) return EINVAL;
  *out = &node->data;
  return 0;
}

cerrno lum_get_s_dev_info(std::uint32_t ifhandle, lum_port_data **out,
                          lum_device_id_td *device_id) {
  lum_device_id_td record = {};
  const cerrno rc = lum_ports_db_ifh2devid(ifhandle, &record);
  if (rc != 0 || (record.valid & LUM_DEVID_PORT_HANDLE) == 0) {
    LUM_ERROR(225, "Failed to get device for interface %x\n", ifhandle);
    return ENOENT;
  }
  if (device_id != nullptr) *device_id = record;
  record.ifname[sizeof record.ifname - 1] = '\0';
  return lum_get_port_info(record.ifname, out);
}

cerrno lum_ports_db_get_rsip_from_ifh(std::uint32_t ifhandle, std::uint32_t *rsip) {
  char name[LUM_DEVID_NAME_SIZE] = {};
  if (!name_of_ifhandle(ifhandle, name)) return EINVAL;
  const parsed_name parsed = parse(name);
  *rsip = parsed.rsip;
  return parsed.rc;
}

cerrno lum_get_intfname_for_port(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                 std::uint32_t port, std::uint32_t sub_port, char *dst) {
  const cerrno rc =
      lum_construct_if_name(LUM_IFTYPE_OTS, rack, slot, instance, port, 1, sub_port, dst);
  if (rc == 0) {
    LUM_DEBUG(226, "If name for port = %d sub_port_number = %d is %s\n", port, sub_port, dst);
  } else {
    LUM_ERROR(227, "Failed to get if name for port = %d subport = %d\n", port, sub_port);
  }
  return rc;
}

// From the database, else from the client.
static bool name_of_ifhandle(std::uint32_t ifhandle, char (&name)[LUM_DEVID_NAME_SIZE]) {
  if (lum_get_ifname_from_ctx(ifhandle, name) == 0) return true;
  const lum_ctx *context = lum_get_ctx();
  if (context == nullptr || context->platform_cbs.ifname_from_ifh == nullptr) return false;
  if (context->platform_cbs.ifname_from_ifh(ifhandle, name) != 0) return false;
  name[LUM_DEVID_NAME_SIZE - 1] = '\0';
  return true;
}
