#include "api/problem.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "api/reply.h"

namespace lumd {
namespace {

struct status_phrase {
  unsigned status;
  std::string_view text;
};

// As HTTP calls them, for every status that is refused with.
constexpr std::array<status_phrase, 12> phrases = {{{400, "Bad Request"},
                                                    {403, "Forbidden"},
                                                    {404, "Not Found"},
                                                    {405, "Method Not Allowed"},
                                                    {409, "Conflict"},
                                                    {413, "Content Too Large"},
                                                    {415, "Unsupported Media Type"},
                                                    {421, "Misdirected Request"},
                                                    {431, "Request Header Fields Too Large"},
                                                    {500, "Internal Server Error"},
                                                    {501, "Not Implemented"},
                                                    {503, "Service Unavailable"}}};

std::string_view phrase_of(unsigned status) {
  const auto *const found =
      std::find_if(phrases.begin(), phrases.end(),
                   [status](const status_phrase &one) { return one.status == status; });
  return found == phrases.end() ? "Error" : found->text;
}

}  // namespace

json problem(unsigned status, const std::string &detail) {
  return {{"type", "about:blank"},
          {"title", phrase_of(status)},
          {"status", status},
          {"detail", detail},
          {"error", detail}};
}

http_reply problem_reply(unsigned status, const std::string &detail) {
  return to_http(refuse(status, detail));
}

}  // namespace lumd
