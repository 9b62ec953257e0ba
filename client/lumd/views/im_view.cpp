#include "views/im_view.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "lum.h"
#include "node/driver.h"
#include "node/port_data.h"

namespace lumd {
namespace {

using lum_linux::im_malformation;

std::string_view name_of(im_malformation value) {
  for (const lum_words::malformation &word : lum_words::malformations) {
    if (malformation_of(word) == value) return word.name;
  }
  return "none";
}

// What the library takes for the controllers: name and interface handle of those it has confirmed.
std::map<std::string, uint32_t> known_to_the_library() {
  std::map<std::string, uint32_t> known;
  for (const auto &[rsip, port] : copy_ports()) {
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      if (controller.created == 0) continue;
      known[text_of(controller.ifname)] = controller.ifhandle;
    }
  }
  return known;
}

json state_or_null(const lum_linux::im_controller &controller) {
  return controller.state ? json(*controller.state) : json();
}

json list_controllers(driver &node) {
  auto known = known_to_the_library();
  json controllers = json::array();
  for (const auto &controller : node.platform().im().controllers()) {
    json shown = {{"name", controller.name},
                  {"ifhandle", controller.handle},
                  {"state", state_or_null(controller)},
                  {"updates", controller.updates},
                  {"library_ifhandle", nullptr},
                  {"agrees", false}};
    if (const auto own = known.extract(controller.name)) {
      shown["library_ifhandle"] = own.mapped();
      shown["agrees"] = own.mapped() == controller.handle;
    }
    controllers.push_back(std::move(shown));
  }
  for (const auto &[name, ifhandle] : known) {
    controllers.push_back({{"name", name},
                           {"ifhandle", nullptr},
                           {"state", nullptr},
                           {"updates", nullptr},
                           {"library_ifhandle", ifhandle},
                           {"agrees", false}});
  }
  return controllers;
}

}  // namespace

im_malformation malformation_of(const lum_words::malformation &word) {
  using lum_words::malformation_id;
  switch (word.id) {
    case malformation_id::garbage:
      return im_malformation::garbage;
    case malformation_id::truncated:
      return im_malformation::truncated;
    case malformation_id::missing_member:
      return im_malformation::missing_member;
    case malformation_id::absent:
      return im_malformation::absent;
  }
  return im_malformation::none;
}

json show_controllers(driver &node) {
  const auto statistics = node.platform().im().statistics();
  return {{"controllers", list_controllers(node)},
          {"batches",
           {{"create", statistics.create_batches},
            {"delete", statistics.delete_batches},
            {"update", statistics.update_batches},
            {"refused", statistics.refused},
            {"answered", statistics.answered},
            {"dropped", statistics.dropped},
            {"pending", statistics.pending}}},
          {"elements", {{"accepted", statistics.elements}, {"failed", statistics.failed_elements}}},
          {"restarts", statistics.restarts}};
}

json show_behaviour(const lum_linux::im_behaviour &now) {
  json names = json::array();
  for (const auto &[name, code] : now.fail_names) names.push_back({{"name", name}, {"code", code}});
  return {{"refuse", {{"batches", now.refuse}, {"code", now.refuse_code}}},
          {"drop", {{"batches", now.drop}}},
          {"fail", {{"batches", now.fail}, {"code", now.fail_code}}},
          {"empty", {{"batches", now.empty}}},
          {"malform", {{"batches", now.malform}, {"kind", name_of(now.malformation)}}},
          {"fail_names", std::move(names)},
          {"fail_every", {{"nth", now.fail_nth}, {"code", now.fail_nth_code}}},
          {"delay_ms", {{"min", now.delay_min.count()}, {"max", now.delay_max.count()}}},
          {"out_of_order", now.out_of_order},
          {"held", now.held}};
}

json show_im(driver &node) {
  const lum_linux::interface_manager &im = node.platform().im();
  const auto statistics = im.statistics();
  return {{"controllers", im.controllers().size()},
          {"behaviour", show_behaviour(im.behaviour())},
          {"statistics",
           {{"create_batches", statistics.create_batches},
            {"delete_batches", statistics.delete_batches},
            {"update_batches", statistics.update_batches},
            {"elements", statistics.elements},
            {"failed_elements", statistics.failed_elements},
            {"refused", statistics.refused},
            {"answered", statistics.answered},
            {"dropped", statistics.dropped},
            {"pending", statistics.pending},
            {"restarts", statistics.restarts}}}};
}

}  // namespace lumd
