// The ends of the process that the library's headers state: what it says with each of them. Any
// other end that a test meets is a crash. Tests of the driver read the conditions from here too.
#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

namespace support {

inline constexpr std::string_view stated_ends[] = {
    // lum_platform_data_init(): a ports database that cannot be started
    "CERR_IS_OK(lum_ports_db_init())",
    // lum_infra_init(): the client's signals cannot be kept from the library's threads
    "sigemptyset(&signals) == 0",
    "sigaddset(&signals, SIGRTMIN + 6) == 0",
    "sigaddset(&signals, SIGRTMIN + 10) == 0",
    "pthread_sigmask(SIG_BLOCK, &signals, NULL) == 0",
    // the device id of an interface: its name has no sub-port
    "sub_port_exists",
    // completion of a create batch: an element that succeeded cannot be decoded
    "0",
    "CERR_IS_OK(rc) && wiredef_icpe_ext_intf_create_reply_data_have_required( &decoded_data)",
};

// Whether a process that was ended by SIGABRT and has said this ended as stated.
inline bool is_stated_end(std::string_view said) {
  return std::any_of(std::begin(stated_ends), std::end(stated_ends), [said](std::string_view one) {
    return said.find("Assertion `" + std::string(one) + "' failed.") != std::string_view::npos;
  });
}

}  // namespace support
