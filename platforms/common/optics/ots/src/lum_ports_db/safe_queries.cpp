// The four queries that clients make from any thread, each under the serial lock.
#include <cerrno>

#include "base/shared.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

namespace {

class serial_hold {
 public:
  serial_hold(std::uint32_t line, const char *caller) : line_(line), caller_(caller) {
    lum_serial_lock(line_, caller_);
  }
  ~serial_hold() { lum_serial_unlock(line_, caller_); }
  serial_hold(const serial_hold &) = delete;
  serial_hold &operator=(const serial_hold &) = delete;

 private:
  std::uint32_t line_;
  const char *caller_;
};

}  // namespace

cerrno lum_safely_get_port_info(const char *ifname, lum_port_data **out) {
  serial_hold serial(__LINE__, __func__);
  return lum_get_port_info(ifname, out);
}

cerrno lum_safely_get_ifhandle(std::uint32_t port_handle, std::uint32_t sub_port,
                               std::uint32_t *ifhandle) {
  ports_reader reader;
  serial_hold serial(__LINE__, __func__);
  const lum_port_node_info *node = find_port_by_handle(port_handle);
  if (node == nullptr || sub_port >= LUM_SUB_PORTS) return EINVAL;
  *ifhandle = shared_load(node->data.device_id[sub_port].ifhandle);
  return 0;
}

cerrno lum_safely_get_devinfo(std::uint32_t port_handle, std::uint32_t sub_port,
                              lum_device_id_td *out) {
  *out = {};
  serial_hold serial(__LINE__, __func__);
  return lum_ports_db_port_handle2devid(port_handle, sub_port, out) == 0 ? 0 : EINVAL;
}

cerrno lum_safely_get_rsip(std::uint32_t port_handle, std::uint32_t *rsip) {
  serial_hold serial(__LINE__, __func__);
  return lum_ports_db_port_handle2rsip(port_handle, rsip);
}
