// The interface manager: how it behaves, and how it is to behave.
#include <array>
#include <limits>

#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "lum_linux/interface_manager.h"
#include "node/driver.h"
#include "views/action_view.h"
#include "views/im_view.h"

namespace lumd {
namespace {

using lum_linux::im_malformation;
using lum_linux::interface_manager;
using std::chrono::milliseconds;

constexpr uint32_t most_batches = 1'000'000;
constexpr uint32_t longest_delay_ms = 600'000;
constexpr uint32_t any_code = std::numeric_limits<uint32_t>::max();
constexpr milliseconds manager_bound(5000);

api_reply get_im(driver &node, const api_request &) { return {200, show_im(node)}; }

// Each reads its own members and returns what to do once the body has turned out right.
using im_action = std::function<bool(interface_manager &)>;

template <typename Change>
im_action always(Change change) {
  return [change](interface_manager &im) {
    change(im);
    return true;
  };
}

im_action read_refuse(request_body &body) {
  const uint32_t count = body.number("count", 0, most_batches);
  const uint32_t code = body.number("code", 1, any_code);
  return always([=](interface_manager &im) { im.refuse_next(count, code); });
}

im_action read_drop(request_body &body) {
  const uint32_t count = body.number("count", 0, most_batches);
  return always([=](interface_manager &im) { im.drop_next(count); });
}

im_action read_fail_next(request_body &body) {
  const uint32_t count = body.number("count", 0, most_batches);
  const uint32_t code = body.number("code", 1, any_code);
  return always([=](interface_manager &im) { im.fail_next(count, code); });
}

im_action read_fail_name(request_body &body) {
  const std::string name = body.text("name");
  const uint32_t code = body.number("code", 0, any_code);
  return always([=](interface_manager &im) { im.fail_name(name, code); });
}

im_action read_fail_every(request_body &body) {
  const uint32_t nth = body.number("nth", 0, most_batches);
  const uint32_t code = body.number("code", 0, any_code);
  return always([=](interface_manager &im) { im.fail_every(nth, code); });
}

im_action read_empty(request_body &body) {
  const uint32_t count = body.number("count", 0, most_batches);
  return always([=](interface_manager &im) { im.empty_next(count); });
}

im_action read_malform(request_body &body) {
  const uint32_t count = body.number("count", 0, most_batches);
  const std::string wanted = body.text("kind");
  im_malformation chosen = im_malformation::none;
  for (const lum_words::malformation &kind : lum_words::malformations) {
    if (kind.name == wanted) chosen = malformation_of(kind);
  }
  if (chosen == im_malformation::none) {
    body.complain_of_word("kind", wanted, names_of(lum_words::malformations));
  }
  return always([=](interface_manager &im) { im.malform_next(count, chosen); });
}

im_action read_delay(request_body &body) {
  const uint32_t least = body.number("min_ms", 0, longest_delay_ms);
  const uint32_t most = body.number("max_ms", 0, longest_delay_ms);
  const uint32_t seed = body.optional_number("seed", 0, any_code).value_or(1);
  if (most < least) body.complain("\"max_ms\" is below \"min_ms\"");
  return always(
      [=](interface_manager &im) { im.set_delay(milliseconds(least), milliseconds(most), seed); });
}

im_action read_hold(request_body &body) {
  const bool on = body.boolean("on");
  return always([=](interface_manager &im) { im.hold(on); });
}

im_action read_out_of_order(request_body &body) {
  const bool on = body.boolean("on");
  const uint32_t window = body.optional_number("window_ms", 0, longest_delay_ms).value_or(20);
  return always([=](interface_manager &im) { im.set_out_of_order(on, milliseconds(window)); });
}

im_action read_restart(request_body &body) {
  const bool drop = body.optional_boolean("drop", false);
  return [=](interface_manager &im) {
    return im.restart(drop ? interface_manager::pending::drop : interface_manager::pending::answer);
  };
}

im_action read_behave(request_body &) {
  return always([](interface_manager &im) { im.behave(); });
}

struct action {
  std::string_view name;
  im_action (*read)(request_body &);
};
constexpr std::array<action, 12> actions = {{{"refuse", read_refuse},
                                             {"drop", read_drop},
                                             {"fail-next", read_fail_next},
                                             {"fail-name", read_fail_name},
                                             {"fail-every", read_fail_every},
                                             {"empty", read_empty},
                                             {"malform", read_malform},
                                             {"delay", read_delay},
                                             {"hold", read_hold},
                                             {"out-of-order", read_out_of_order},
                                             {"restart", read_restart},
                                             {"behave", read_behave}}};

im_action read_action(request_body &body) {
  const std::string wanted = body.text("action");
  for (const action &action : actions) {
    if (action.name == wanted) return action.read(body);
  }
  body.complain_of_word("action", wanted, lum_words::names_of(actions));
  return nullptr;
}

api_reply post_im(driver &node, const api_request &request) {
  request_body body(request.body);
  im_action action = read_action(body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, interface_manager_lane, manager_bound, [&node, action = std::move(action)] {
    interface_manager &im = node.platform().im();
    const bool complete = action(im);
    json reply = {{"result", result_of(0)}, {"behaviour", show_behaviour(im.behaviour())}};
    conclude(reply, complete, "a completion does not come back; it is done after that");
    return api_reply{200, std::move(reply)};
  });
}

}  // namespace

std::span<const route> im_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/im", get_im},
      {"POST", "/v1/im", post_im},
  };
  return routes;
}

}  // namespace lumd
