/* The smallest driver: starts the Linux platform and liblum, creates every port of the node, waits
 * for one polling cycle and prints what each module is and how warm it is.
 *
 *   cc minimal_driver.c $(pkg-config --cflags --libs lum_linux) -o minimal_driver
 *   ./minimal_driver node.toml */
#include <lum.h>
#include <lum_linux.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { polling_cycle_seconds = 6, create_timeout_ms = 10000 };

static int start_library(void) {
  lum_infra_params params = {0};
  params.evm = lum_linux_event_manager();
  params.platform_cbs = lum_linux_callbacks();
  strcpy(params.process_name, "minimal_driver");
  uint32_t rc = lum_lib_init();
  return rc != 0 ? (int)rc : (int)lum_infra_init(&params);
}

/* Creates the ports of every slot and counts the controllers they will have. */
static int create_ports(uint32_t *controllers) {
  for (uint32_t i = 0; i < lum_linux_slot_count(); ++i) {
    lum_linux_slot_info slot;
    int rc = lum_linux_slot(i, &slot);
    if (rc == 0) rc = (int)lum_plat_init(slot.rack, slot.slot, slot.instance, &slot.props);
    if (rc == 0 && slot.port_count > 0) rc = (int)lum_create_ports(slot.port_count, slot.ports);
    if (rc != 0) return rc;
    *controllers += slot.port_count * LUM_SUB_PORTS;
  }
  return 0;
}

static void print_port(const lum_port_props *port) {
  static lum_hw_info_out record; /* big: not on the stack */
  const unsigned char *bytes = (const unsigned char *)&record;
  uint32_t ifhandle = 0, present = 0;
  int32_t temperature = 0;
  memset(&record, 0, sizeof record);
  if (lum_safely_get_ifhandle(port->port_handle, 0, &ifhandle) != 0 ||
      lum_get_hw_info(1, &ifhandle, &record) != 0) {
    printf("%-12s no information\n", lum_linux_port_name(port->rsip));
    return;
  }
  memcpy(&present, bytes + LUM_HW_OUT_PRESENT, sizeof present);
  memcpy(&temperature, bytes + LUM_HW_OUT_TEMPERATURE, sizeof temperature);
  if (!present || bytes[LUM_HW_OUT_VENDOR_NAME] == 0) {
    printf("%-12s no module\n", lum_linux_port_name(port->rsip));
    return;
  }
  printf("%-12s %-17.*s %7.2f C\n", lum_linux_port_name(port->rsip), LUM_HW_OUT_TEXT_SIZE,
         (const char *)bytes + LUM_HW_OUT_VENDOR_NAME, temperature / 100.0);
}

int main(int argc, char **argv) {
  char error[1024];
  uint32_t controllers = 0;
  if (argc != 2) {
    fprintf(stderr, "usage: %s NODE_DESCRIPTION\n", argv[0]);
    return 2;
  }
  if (lum_linux_start(argv[1], error, sizeof error) != 0) {
    fprintf(stderr, "%s\n", error);
    return 2;
  }
  int rc = start_library();
  if (rc == 0) rc = create_ports(&controllers);
  if (rc == 0) rc = lum_linux_wait_created(controllers, create_timeout_ms);
  if (rc != 0) {
    fprintf(stderr, "cannot bring the node up: %s\n", cerr_strerror((cerrno)rc));
  } else {
    sleep(polling_cycle_seconds);
    for (uint32_t i = 0; i < lum_linux_slot_count(); ++i) {
      lum_linux_slot_info slot;
      if (lum_linux_slot(i, &slot) != 0) continue;
      for (uint32_t p = 0; p < slot.port_count; ++p) print_port(&slot.ports[p]);
    }
  }
  lum_linux_stop();
  return rc == 0 ? 0 : 1;
}
