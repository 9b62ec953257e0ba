// What the tests of the ports database share.
#pragma once

#include <gmock/gmock.h>

#include <memory>

#include "library.h"
#include "lum_ports_db/lum_ports_db.h"

namespace ports_db_fixture {

inline constexpr uint32_t rsip = 0x30007;

// The database set up, without the rest of the library.
class ports_db : public testing::Test {
 protected:
  void SetUp() override {
    support::open_traces();
    ASSERT_EQ(lum_platform_data_init(0, 0), 0u);
    support::clear_record();
  }
  cerrno add(uint32_t at) {
    auto data = std::make_unique<lum_port_data>();
    data->port = at & 0xFF;
    return lum_ports_db_add_entry(at, data.get());
  }
};

}  // namespace ports_db_fixture
