#include "weather.h"

#include "led_trouble.h"
#include "lum_linux/services.h"

namespace stress {
namespace {

using std::chrono::milliseconds;

constexpr cerrno refused_for_now = 11;
constexpr cerrno failing = 5;
constexpr const char *channels[] = {"lum_error", "lum_info", "lum_debug"};

void trouble_interface_manager(lum_linux::interface_manager &im, worker &self) {
  random_engine &random = self.random;
  switch (below(random, 20)) {
    case 0:
      self.doing("refusing batches");
      return im.refuse_next(1 + below(random, 3), refused_for_now);
    case 1:
      self.doing("dropping a batch");
      return im.drop_next(1);
    case 2:
      self.doing("failing a batch");
      return im.fail_next(1, failing);
    case 3:
      self.doing("answering empty");
      return im.empty_next(1 + below(random, 2));
    case 4:
      self.doing("failing elements");
      return im.fail_every(3 + below(random, 30), failing);
    case 5:
      self.doing("failing elements benignly");
      return im.fail_every(3 + below(random, 30), LUM_IM_ELEMENT_BENIGN);
    case 6:
      self.doing("answering out of order");
      return im.set_out_of_order(below(random, 2) == 0, milliseconds(5));
    case 7: {
      self.doing("holding answers");
      im.hold(true);
      std::this_thread::sleep_for(milliseconds(below(random, 20)));
      return im.hold(false);
    }
    case 8:
      self.doing("restarting the interface manager");
      im.restart(below(random, 2) == 0 ? lum_linux::interface_manager::pending::answer
                                       : lum_linux::interface_manager::pending::drop);
      return;
    case 9:
      self.doing("delaying answers");
      return im.set_delay(milliseconds(0), milliseconds(below(random, 25)), below(random, 1000));
    default:
      self.doing("behaving");
      return im.behave();
  }
}

void trouble_module(node &node, const port_place &port, worker &self) {
  random_engine &random = self.random;
  lum_linux::fault_script faults;
  faults.seed = 1 + below(random, 1000);
  switch (below(random, 7)) {
    case 0:
      self.doing("refusing transfers");
      faults.refuse_percent = 1 + below(random, 100);
      break;
    case 1:
      self.doing("delaying transfers");
      faults.delay = milliseconds(1 + below(random, 3));
      break;
    case 2:
      self.doing("spoiling transfers");
      faults.flip_percent = 50;
      faults.half_every = 3;
      break;
    case 3:
      self.doing("pulling a module");
      node.modules().remove(port.rsip);
      break;
    case 4:
      self.doing("upgrading a module");
      node.platform().set_fw_upgrade(port.rsip, below(random, 2));
      return;
    default:
      self.doing("mending a module");
      node.modules().insert(port.rsip);
  }
  node.modules().set_faults(port.rsip, faults);
}

// A setting makes up to four pauses.
void trouble_port_leds(worker &self) {
  constexpr std::chrono::microseconds longest_pause(1000);
  switch (below(self.random, 4)) {
    case 0:
      self.doing("slowing the LEDs down");
      return trouble_leds(longest_pause, 0);
    case 1:
      self.doing("failing LEDs");
      return trouble_leds(std::chrono::microseconds(0), 1 + below(self.random, 100));
    case 2:
      self.doing("slowing down and failing LEDs");
      return trouble_leds(longest_pause, 50);
    default:
      self.doing("mending the LEDs");
      return trouble_leds(std::chrono::microseconds(0), 0);
  }
}

}  // namespace

void change_weather(node &node, worker &self) {
  trouble_interface_manager(node.im(), self);
  const port_place &port =
      node.ports()[below(self.random, static_cast<uint32_t>(node.ports().size()))];
  trouble_module(node, port, self);
  if (below(self.random, 4) == 0) trouble_port_leds(self);
  self.doing("switching traces");
  lum_linux::traces_enable(channels[below(self.random, 3)], below(self.random, 4) == 0);
  self.doing("waiting for the next trouble");
  std::this_thread::sleep_for(milliseconds(below(self.random, 10)));
}

void clear_weather(node &node) {
  node.im().behave();
  trouble_leds(std::chrono::microseconds(0), 0);
  for (const port_place &port : node.ports()) {
    node.modules().set_faults(port.rsip, {});
    node.modules().insert(port.rsip);
    node.platform().set_fw_upgrade(port.rsip, 0);
  }
  for (const char *channel : channels) lum_linux::traces_enable(channel, true);
}

}  // namespace stress
