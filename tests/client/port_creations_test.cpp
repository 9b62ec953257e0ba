// Which ports are created together at the start, and which side by side.
#include "node/port_creations.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

namespace {

using lum_linux::module_backend;
using lumd::creation;
using testing::ElementsAre;

class PortCreations : public testing::Test {
 protected:
  lum_linux::node_description node;
  std::set<uint32_t> silent;  // cages that are empty or do not answer

  // An instance of a slot with ports on these buses; one without a name is a simulated module.
  void add(uint32_t slot, const std::vector<std::string> &buses) {
    lum_linux::instance_description instance;
    for (const std::string &bus : buses) {
      lum_linux::port_description port;
      port.number = static_cast<uint32_t>(instance.ports.size()) + 1;
      port.rsip = slot << 16 | port.number;
      port.module.backend = bus.empty() ? module_backend::simulated : module_backend::i2c_dev;
      port.module.i2c_bus = bus;
      instance.ports.push_back(port);
    }
    node.slots.push_back({slot, {instance}});
  }

  // Each call of the library, as lane: ports.
  std::vector<std::string> calls() {
    std::vector<std::string> all;
    lumd::creation_plan plan;
    for (const auto &slot : node.slots) {
      for (const creation &one :
           plan.of(slot, [this](const auto &port) { return !silent.contains(port.rsip); })) {
        std::string text = std::to_string(one.lane) + ":";
        for (const auto *port : one.ports) {
          text += " " + std::to_string(slot.number) + "/" + std::to_string(port->number);
        }
        all.push_back(text);
      }
    }
    return all;
  }
};

TEST_F(PortCreations, ThatAnswerAreAskedForTogetherInTheDescriptionsOrder) {
  add(1, {"", ""});
  add(2, {"", ""});
  EXPECT_THAT(calls(), ElementsAre("0: 1/1 1/2", "0: 2/1 2/2"));
}

TEST_F(PortCreations, ThatDoNotAnswerHoldUpNoOther) {
  add(1, {"", "", ""});
  add(2, {""});
  silent = {0x10001, 0x10003};
  EXPECT_THAT(calls(), ElementsAre("0: 1/2", "1: 1/1", "2: 1/3", "0: 2/1"));
}

TEST_F(PortCreations, OfOneBusFollowOneAnotherAndTheSilentComeLast) {
  add(1, {"/dev/i2c-1", "/dev/i2c-2", "/dev/i2c-1"});
  add(2, {"/dev/i2c-2", "/dev/i2c-1"});
  silent = {0x10001};
  EXPECT_THAT(calls(), ElementsAre("2: 1/2", "1: 1/3", "1: 1/1", "2: 2/1", "1: 2/2"));
}

TEST_F(PortCreations, OfANodeWithoutPortsAreNone) {
  EXPECT_THAT(calls(), ElementsAre());
  add(1, {});
  EXPECT_THAT(calls(), ElementsAre());
}

}  // namespace
