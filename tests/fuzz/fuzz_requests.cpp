// Queries and headers of any form. What is taken of a query has a name that is known, once; what
// the driver does not send again is what has the tag that the peer gave.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "api/accept.h"
#include "api/entity_tag.h"
#include "api/http_server.h"
#include "api/query.h"

namespace {

constexpr std::array<std::string_view, 3> known = {"since", "port", "limit"};

void check_query(std::string_view text) {
  lumd::query_members query;
  const std::string wrong = lumd::read_query(text, known, query);
  for (const auto &[name, value] : query) {
    if (std::find(known.begin(), known.end(), name) == known.end()) std::abort();
    if (value.size() > text.size()) std::abort();
  }
  if (wrong.empty() && text.find('%') == std::string_view::npos &&
      query.size() > static_cast<std::size_t>(std::count(text.begin(), text.end(), '&')) + 1) {
    std::abort();
  }
}

void check_tag(const std::string &if_none_match) {
  lumd::http_reply reply;
  reply.body = "{}\n";
  lumd::spare_what_is_known(if_none_match, reply);
  const bool is_meant = if_none_match.find(reply.entity_tag) != std::string::npos ||
                        if_none_match.find('*') != std::string::npos;
  if (reply.status != 200 && (!is_meant || !reply.body.empty())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  check_query(text);
  check_tag(text);
  // What names no stream is none.
  const bool has_letters = text.find_first_of("tT") != std::string::npos;
  if (lumd::accepts_event_stream(text) && !has_letters) std::abort();
  return 0;
}
