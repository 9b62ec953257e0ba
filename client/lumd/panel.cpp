#include "panel.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "api/entity_tag.h"
#include "api/problem.h"
#include "api/query.h"
#include "panel/files.h"
#include "views/json.h"
#include "words/explanations.h"

namespace lumd {
namespace {

constexpr std::string_view folder = "/panel/";
constexpr std::string_view explanations_name = "explanations.json";

// Nothing but this node's own files and answers, and no text that becomes markup or a script.
constexpr const char *policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

json list_explanations() {
  json all = json::object();
  for (const lum_words::explanation &one : lum_words::explanations) {
    all[std::string(one.name)] = {
        {"meaning", one.meaning}, {"look_at", one.look_at}, {"remedy", one.remedy}};
  }
  return all;
}

// What `lumctl explain` says. It is the same for as long as the driver runs.
const lum_panel::file &explanations() {
  static const std::string text = list_explanations().dump() + "\n";
  static const lum_panel::file made = {explanations_name, "application/json", text};
  return made;
}

const lum_panel::file *find_file(std::string_view path) {
  const std::string_view name = path == "/"                ? "index.html"
                                : path.starts_with(folder) ? path.substr(folder.size())
                                                           : "";
  if (name == explanations_name) return &explanations();
  const auto files = lum_panel::files();
  const auto found = std::find_if(files.begin(), files.end(),
                                  [name](const lum_panel::file &one) { return one.name == name; });
  return found == files.end() ? nullptr : &*found;
}

}  // namespace

std::optional<http_reply> answer_with_panel(const http_request &request) {
  const std::string_view target = request.target;
  const std::size_t question = target.find('?');
  const lum_panel::file *const file = find_file(target.substr(0, question));
  if (file == nullptr) return std::nullopt;
  if (request.method != "GET") {
    http_reply refused = problem_reply(405, "this path takes GET, HEAD");
    refused.allow = "GET, HEAD";
    return refused;
  }
  if (question != std::string_view::npos) {
    query_members none;
    const std::string wrong = read_query(target.substr(question + 1), {}, none);
    if (!wrong.empty()) return problem_reply(400, wrong);
  }
  http_reply reply;
  reply.content_type = file->type;
  reply.policy = policy;
  reply.body = file->bytes;
  spare_what_is_known(request.if_none_match, reply);
  return reply;
}

}  // namespace lumd
