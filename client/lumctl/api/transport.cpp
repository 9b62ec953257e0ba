// clang-format off
#include <utility>
// clang-format on

#include "api/transport.h"

#include <fmt/format.h>
#include <openssl/x509v3.h>

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <memory>

#include "api/look_up.h"
#include "api/no_driver.h"
#include "api/no_node.h"
#include "base/tls_context.h"
#include "base/unix_address.h"

namespace lumctl {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;
using local = net::local::stream_protocol;
using clock = std::chrono::steady_clock;
using tls_stream = beast::ssl_stream<beast::tcp_stream>;

constexpr std::size_t answer_limit = std::size_t{64} * 1024 * 1024;

// One request and its answer.
struct talk {
  http::request<http::string_body> request;
  http::response_parser<http::string_body> answer;
  beast::flat_buffer buffer;
  error_code result;
};

void prepare(talk &now, const question &asked, const std::string &host) {
  now.request.version(11);
  now.request.method(asked.is_change ? http::verb::post : http::verb::get);
  now.request.target(asked.target);
  now.request.set(http::field::host, host);
  now.request.keep_alive(false);
  if (asked.is_change) now.request.set(http::field::content_type, "application/json");
  now.request.body() = asked.body;
  now.request.prepare_payload();
  now.answer.body_limit(answer_limit);
}

// Also where the request was not taken whole: the refusal may be there.
template <typename Stream>
void ask(Stream &stream, talk &now) {
  http::async_write(stream, now.request, [&](error_code not_sent, std::size_t) {
    http::async_read(
        stream, now.buffer, now.answer, [&now, not_sent](error_code not_read, std::size_t) {
          now.result = not_read == net::error::connection_reset && not_sent ? not_sent : not_read;
        });
  });
}

// Whether something has answered, in words that are no answer.
bool is_of_the_answer(const error_code &failed) {
  return failed.category() == http::make_error_code(http::error::bad_method).category() &&
         failed != http::error::end_of_stream;
}

// The driver took the connection and is gone.
bool has_ended(const error_code &failed) {
  return failed == http::error::end_of_stream || failed == net::error::eof ||
         failed == net::error::connection_reset || failed == net::error::broken_pipe;
}

std::error_code as_standard(const error_code &failed) {
  if (failed == beast::error::timeout) return std::make_error_code(std::errc::timed_out);
  return failed;
}

raw_answer unanswered(std::string why) { return {outcome::unreachable, 0, {}, std::move(why)}; }

raw_answer answer_of(talk &now) {
  return {outcome::done, now.answer.get().result_int(), std::move(now.answer.get().body()), {}};
}

raw_answer ask_socket(const destination &to, const question &asked,
                      std::chrono::milliseconds patience) {
  const std::string &socket = to.socket;
  const lum_client::unix_address address(socket);
  if (address.problem()) return unanswered(why_no_driver(socket, address.problem(), patience));
  const auto end = clock::now() + patience;
  std::error_code not_connected;
  const int connection = address.connect_within(patience, not_connected);
  if (connection < 0) return unanswered(why_no_driver(socket, not_connected, patience));
  talk now;
  prepare(now, asked, "lumd");
  net::io_context loop;
  beast::basic_stream<local> stream(loop);
  stream.socket().assign(local(), connection);
  stream.expires_at(end);
  ask(stream, now);
  loop.run();
  if (!now.result) return answer_of(now);
  if (is_of_the_answer(now.result)) {
    return unanswered(why_no_answer(to, "is none: " + now.result.message()));
  }
  if (has_ended(now.result) && asked.is_change) {
    return {outcome::refused,
            0,
            {},
            fmt::format("the driver at {} ended before it answered; its log says why, and what was "
                        "asked for may be done in part",
                        socket)};
  }
  return unanswered(why_no_driver(socket, as_standard(now.result), patience));
}

// Whose certificate it is: its names and addresses.
std::string names_in(X509 *certificate) {
  std::string names;
  auto *const all = static_cast<GENERAL_NAMES *>(
      X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
  for (int i = 0; i < sk_GENERAL_NAME_num(all); ++i) {
    const GENERAL_NAME *const one = sk_GENERAL_NAME_value(all, i);
    if (one->type != GEN_DNS && one->type != GEN_IPADD) continue;
    const auto *const bytes = ASN1_STRING_get0_data(one->d.ia5);
    const std::string text(reinterpret_cast<const char *>(bytes),
                           static_cast<std::size_t>(ASN1_STRING_length(one->d.ia5)));
    if (!names.empty()) names += ", ";
    if (one->type == GEN_DNS) names += text;
    if (one->type == GEN_IPADD && text.size() == 4) {
      names += fmt::format("{}.{}.{}.{}", bytes[0], bytes[1], bytes[2], bytes[3]);
    } else if (one->type == GEN_IPADD) {
      net::ip::address_v6::bytes_type v6{};
      std::copy_n(bytes, std::min(text.size(), v6.size()), v6.begin());
      names += net::ip::make_address_v6(v6).to_string();
    }
  }
  GENERAL_NAMES_free(all);
  return names;
}

// The node has to be the one that was meant.
void want_identity(tls_stream &stream, const std::string &host, tls_findings &found) {
  X509_VERIFY_PARAM *const wanted = SSL_get0_param(stream.native_handle());
  if (X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str()) != 1) {
    X509_VERIFY_PARAM_set1_host(wanted, host.data(), host.size());
    SSL_set_tlsext_host_name(stream.native_handle(), host.c_str());
  }
  stream.set_verify_callback([&found](bool good, net::ssl::verify_context &at) {
    if (!good) {
      found.distrust = X509_STORE_CTX_get_error(at.native_handle());
      X509 *const seen = X509_STORE_CTX_get_current_cert(at.native_handle());
      if (seen != nullptr) found.names = names_in(seen);
    }
    return good;
  });
}

using addresses = net::ip::tcp::resolver::results_type;

std::pair<addresses, error_code> addresses_of(const std::string &host, const std::string &port) {
  net::io_context loop;
  error_code unknown;
  addresses found = net::ip::tcp::resolver(loop).resolve(host, port, unknown);
  return {std::move(found), unknown};
}

void ask_plainly(net::io_context &loop, const addresses &there, clock::time_point end, talk &now) {
  beast::tcp_stream stream(loop);
  stream.expires_at(end);
  stream.async_connect(there, [&](error_code failed, const auto &) {
    if (!(now.result = failed)) ask(stream, now);
  });
  loop.run();
}

void ask_by_tls(net::io_context &loop, tls_stream &stream, const addresses &there,
                clock::time_point end, talk &now) {
  beast::get_lowest_layer(stream).expires_at(end);
  beast::get_lowest_layer(stream).async_connect(there, [&](error_code failed, const auto &) {
    if ((now.result = failed)) return;
    stream.async_handshake(net::ssl::stream_base::client, [&](error_code not_met) {
      if (!(now.result = not_met)) ask(stream, now);
    });
  });
  loop.run();
}

raw_answer ask_securely(const destination &to, const node_address &node, const addresses &there,
                        clock::time_point end, net::io_context &loop, talk &now) {
  std::string wrong;
  const auto own = lum_client::tls_context::of_client(
      {to.certificate, to.key.empty() ? to.certificate : to.key, to.ca}, wrong);
  if (!own) return {outcome::refused, 0, {}, wrong};
  SSL_CTX_up_ref(own->get());
  net::ssl::context context(own->get());
  tls_stream stream(loop, context);
  tls_findings found;
  want_identity(stream, node.host, found);
  ask_by_tls(loop, stream, there, end, now);
  if (now.result.category() == net::error::get_ssl_category()) {
    found.failure = static_cast<unsigned>(now.result.value());
    return unanswered(why_no_tls(to, found));
  }
  return {};
}

// What is left where TLS had nothing to say.
raw_answer judge(const destination &to, talk &now, std::chrono::milliseconds patience) {
  if (!now.result) return answer_of(now);
  if (is_of_the_answer(now.result)) {
    return unanswered(why_no_answer(to, "is none: " + now.result.message()));
  }
  return unanswered(why_no_node(to, as_standard(now.result), patience));
}

raw_answer ask_from_afar(const destination &to, const question &asked,
                         std::chrono::milliseconds patience) {
  node_address node;
  if (std::string wrong = read_url(to.url, node); !wrong.empty()) {
    return {outcome::refused, 0, {}, std::move(wrong)};
  }
  talk now;
  prepare(now, asked, node.authority);
  const auto end = clock::now() + patience;
  const auto found = look_up_within(
      patience, [host = node.host, port = node.port] { return addresses_of(host, port); });
  if (!found) return unanswered(why_no_address(to, patience));
  const auto &[there, unknown] = *found;
  if (unknown) return unanswered(why_no_address(to, unknown.message()));
  net::io_context loop;
  if (node.tls) {
    raw_answer failed = ask_securely(to, node, there, end, loop, now);
    if (!failed.error.empty()) return failed;
  } else {
    ask_plainly(loop, there, end, now);
  }
  return judge(to, now, patience);
}

}  // namespace

raw_answer exchange(const destination &to, const question &asked,
                    std::chrono::milliseconds patience) {
  return to.url.empty() ? ask_socket(to, asked, patience) : ask_from_afar(to, asked, patience);
}

}  // namespace lumctl
