// Alarms and readings injected for tests.
#include <span>

#include "api/request_body.h"
#include "api/routes.h"
#include "lum.h"
#include "node/alarm_tests.h"
#include "node/alarms.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "node/readings.h"
#include "views/alarm_view.h"

namespace lumd {
namespace {

// A number in decimal is taken too.
constexpr auto alarm_names = lum_words::with_everything(names_of(lum_words::alarms));
constexpr auto readings_names = lum_words::with_everything(names_of(lum_words::raisable_readings));

api_reply run(driver &node, const alarm_test_request &wanted, const std::string &text) {
  return reply_to(run_alarm_test(node, wanted, text), [&](const alarm_test_report &report) {
    return show_alarm_test(report, wanted, text);
  });
}

// Alarms and readings differ in the names of what is injected only.
api_reply inject(driver &node, const api_request &request, alarm_test test, const char *member,
                 std::optional<uint32_t> (*id_of)(std::string_view),
                 std::span<const std::string_view> names) {
  request_body body(request.body);
  const std::string name = body.text("port");
  alarm_test_request wanted;
  wanted.test = test;
  wanted.place.sub_port = body.number("sub_port", 0, LUM_SUB_PORTS - 1);
  const std::string what = body.text(member);
  const auto id = id_of(what);
  if (!id) body.complain_of_word(member, what, names);
  wanted.on = body.boolean("on");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  const auto *port = find_port(node.node(), name);
  if (port == nullptr) return refuse_port(node.node(), name);
  wanted.place.rsip = port->rsip;
  wanted.id = *id;
  return run(node, wanted, to_text(wanted));
}

api_reply post_alarm(driver &node, const api_request &request) {
  return inject(node, request, alarm_test::alarm, "alarm", alarm_test_id, alarm_names);
}

api_reply post_readings(driver &node, const api_request &request) {
  return inject(node, request, alarm_test::readings, "readings", readings_test_id, readings_names);
}

api_reply post_text(driver &node, const api_request &request) {
  request_body body(request.body);
  const std::string text = body.text("text");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  std::string error;
  const auto wanted = read_alarm_test(text, error);
  if (!wanted) return refuse(400, error);
  return run(node, *wanted, text);
}

}  // namespace

std::span<const route> inject_routes() {
  static constexpr route routes[] = {
      {"POST", "/v1/inject/alarm", post_alarm},
      {"POST", "/v1/inject/readings", post_readings},
      {"POST", "/v1/inject/text", post_text},
  };
  return routes;
}

}  // namespace lumd
