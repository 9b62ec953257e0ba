// One connection of the HTTP server. Heavy: of http_server.cpp alone.
#pragma once

#include <openssl/err.h>
#include <openssl/sslerr.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <boost/asio/ssl.hpp>
#include <boost/beast/ssl.hpp>
#include <memory>
#include <type_traits>

#include "api/connections.h"
#include "api/http_message.h"
#include "api/own_host.h"
#include "api/peer_user.h"
#include "base/tls_context.h"
#include "lum_linux/lanes.h"

namespace lumd {

// So often something goes out on a stream that has nothing to tell: whoever reads it sees that it
// is there, and the server whether anybody does.
inline constexpr std::chrono::seconds sign_of_life(15);

using local_stream = beast::basic_stream<net::local::stream_protocol>;
using plain_stream = beast::basic_stream<net::ip::tcp>;
using tls_stream = beast::ssl_stream<plain_stream>;

// What new connections speak TLS with.
struct http_tls {
  explicit http_tls(std::shared_ptr<const lum_client::tls_context> from)
      : own(std::move(from)), context(shared(own->get())) {}

  const std::shared_ptr<const lum_client::tls_context> own;
  net::ssl::context context;

 private:
  static SSL_CTX *shared(SSL_CTX *context) {
    SSL_CTX_up_ref(context);
    return context;
  }
};

// A connection that waits for what there is to tell.
struct waiting_stream {
  virtual ~waiting_stream() = default;
  virtual void wake() = 0;  // any thread
};

// An address without the interface that it belongs to.
inline std::string text_of_address(const net::ip::tcp::endpoint &endpoint) {
  const auto address = endpoint.address();
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return net::ip::make_address_v4(net::ip::v4_mapped, address.to_v6()).to_string();
  }
  const std::string text = address.to_string();
  return text.substr(0, text.find('%'));
}

// Reads a request, answers it, and so on until either side has had enough.
template <typename Stream, typename Core>
class http_session : public std::enable_shared_from_this<http_session<Stream, Core>>,
                     public waiting_stream,
                     private connections::one {
 public:
  static constexpr bool is_local = std::is_same_v<Stream, local_stream>;
  static constexpr bool is_tls = std::is_same_v<Stream, tls_stream>;

  // `tls` is null where none is spoken; `of_stream` is what the stream is made of.
  template <typename... OfStream>
  http_session(std::shared_ptr<Core> core, connections &from, std::shared_ptr<http_tls> tls,
               OfStream &&...of_stream)
      : stream_(std::forward<OfStream>(of_stream)...),
        core_(std::move(core)),
        from_(from),
        tls_(std::move(tls)) {
    has_room_ = from_.add(*this);
  }
  ~http_session() override { leave_connections(); }
  http_session(const http_session &) = delete;
  http_session &operator=(const http_session &) = delete;

  void wake() override {
    net::post(stream_.get_executor(), [weak = this->weak_from_this()] {
      const auto self = weak.lock();
      if (self && !self->is_sending_) self->send_more();
    });
  }

  void start() {
    if constexpr (is_tls) {
      if (has_room_) return shake_hands();
      close_wire();  // a refusal would take a handshake
    } else if (has_room_) {
      read();
    } else {
      send(problem_reply(503, "too many connections"), false);
    }
  }

 private:
  auto &wire() { return beast::get_lowest_layer(stream_); }

  // All of it within the time that a request has.
  void shake_hands() {
    wire().expires_after(core_->options.idle);
    from_.waits(*this, true);
    stream_.async_handshake(net::ssl::stream_base::server,
                            [self = this->shared_from_this()](error_code error) {
                              self->from_.waits(*self, false);
                              if (!error) return self->read();
                              self->refuse_handshake(error);
                            });
  }

  // Who has asked in plain HTTP is answered so.
  void refuse_handshake(const error_code &error) {
    const auto reason = ERR_GET_REASON(static_cast<unsigned>(error.value()));
    if (error.category() != net::error::get_ssl_category() || reason != SSL_R_HTTP_REQUEST) {
      return close_wire();
    }
    message_ = to_message(problem_reply(400, "this port speaks TLS: ask it by https://"), false);
    wire().expires_after(core_->options.idle);
    http::async_write(wire(), message_, [self = this->shared_from_this()](error_code, std::size_t) {
      self->close_wire();
    });
  }

  // The certificates in force are others than those that it was begun with.
  bool is_outdated() { return !is_local && core_->tls() != tls_; }

  void read() {
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(core_->options.header_limit));
    parser_->body_limit(core_->options.body_limit);
    wire().expires_after(core_->options.idle);
    from_.waits(*this, true);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = this->shared_from_this()](error_code error, std::size_t) { self->on_read(error); });
  }

  // The clock runs out for it, as it would have later.
  void give_way() override { wire().cancel(); }

  void on_read(const error_code &error) {
    from_.waits(*this, false);
    if (error) {
      if (const auto reply = answer_to_unreadable(error)) {
        send(*reply, false);
      } else {
        close();
      }
      return;
    }
    const auto message = parser_->release();
    http_request request = request_in(message);
    head_ = request.method == "HEAD";
    if (head_) request.method = "GET";
    wire().expires_never();
    if (const auto refused = refusal_of(message, request)) return send(*refused, false);
    pass_on(std::move(request), message.keep_alive() && !is_outdated());
  }

  template <typename Message>
  http_request request_in(const Message &message) {
    http_request request = request_of(message);
    if (request.method != "GET" && request.method != "HEAD") tell_peer(request);
    return request;
  }

  // What never gets to a handler.
  std::optional<http_reply> refusal_of(const http::fields &fields, const http_request &request) {
    if (auto refused = refusal_of_header(fields)) return refused;
    // Nobody's page changes anything, even where the socket has been passed on to a browser.
    if (request.method != "GET" && fields.find(http::field::origin) != fields.end()) {
      return problem_reply(403, "a page in a browser may only look");
    }
    if constexpr (!is_local) return refusal_of_host(std::string(fields[http::field::host]));
    return std::nullopt;
  }

  std::optional<http_reply> refusal_of_host(const std::string &field) {
    const auto host = host_in(field);
    if (!host) {
      return problem_reply(
          400,
          "the request's Host is none, expected a name or an address, behind it a port or not");
    }
    error_code ignored;
    const std::string address = text_of_address(wire().socket().local_endpoint(ignored));
    if (core_->is_called(*host, address) || (tls_ && tls_->own->is_for(*host))) return std::nullopt;
    return problem_reply(421, "this node has another name: see http_names in its description");
  }

  // An answer may have to wait for a module or the disk; nobody else's waits with it.
  void pass_on(http_request request, bool keep_alive) {
    const auto verdict = core_->handlers.post(
        core_->next_lane++,
        [self = this->shared_from_this(), request = std::move(request), keep_alive] {
          auto reply = std::make_shared<http_reply>(self->handle(request));
          net::post(self->stream_.get_executor(),
                    [self, reply, keep_alive] { self->send(*reply, keep_alive); });
        });
    if (verdict != lum_linux::lane_verdict::taken) {
      send(problem_reply(503, "the system has no thread or memory for this request"), keep_alive);
    }
  }

  // Without memory even for that reply it throws; the connection then ends with this object.
  http_reply handle(const http_request &request) {
    try {
      return core_->handler(request);
    } catch (const std::exception &) {
    }
    return problem_reply(500, "the driver could not answer");
  }

  // Who asks, and whether that may change something: root and the driver's own user may, those
  // whom the socket's group lets in may not.
  void tell_peer(http_request &request) {
    request.barred = "only the driver's own socket takes changes";
    if constexpr (is_local) {
      ucred credentials = {};
      socklen_t size = sizeof credentials;
      if (::getsockopt(wire().socket().native_handle(), SOL_SOCKET, SO_PEERCRED, &credentials,
                       &size) != 0) {
        return;
      }
      request.user = name_of_user(credentials.uid);
      const uid_t own = ::geteuid();
      request.barred = credentials.uid == 0 || credentials.uid == own
                           ? ""
                           : request.user + " may only look: changes are for root and " +
                                 name_of_user(own) + ", as whom the driver runs";
    }
  }

  void leave_connections() {
    if (!std::exchange(is_counted_, false)) return;
    from_.remove(*this);
  }

  // From here on it is one of the streams.
  void begin_stream(const http_reply &reply) {
    if (!core_->add_stream(this->shared_from_this())) {
      return send(problem_reply(503, "too many streams"), false);
    }
    leave_connections();
    told_ = reply.stream;
    text_ = "HTTP/1.1 200 OK\r\nContent-Type: " + reply.content_type +
            "\r\nX-Content-Type-Options: nosniff\r\nCache-Control: no-store\r\nConnection: close"
            "\r\n\r\n";
    timer_.emplace(stream_.get_executor());
    wire().expires_never();
    watch_peer();
    send_text();
  }

  // Reads what nobody asked for: the end is among it.
  void watch_peer() {
    stream_.async_read_some(net::buffer(unasked_),
                            [self = this->shared_from_this()](error_code error, std::size_t) {
                              if (error) return self->end_stream();
                              self->watch_peer();
                            });
  }

  // A stream that has no memory to go on ends: whoever reads it asks again.
  void send_text() {
    is_sending_ = true;
    try {
      wire().expires_after(core_->options.idle);
      net::async_write(stream_, net::buffer(text_),
                       [self = this->shared_from_this()](error_code error, std::size_t) {
                         self->is_sending_ = false;
                         if (error) return self->end_stream();
                         self->send_more();
                       });
    } catch (const std::exception &) {
      end_stream();
    }
  }

  void send_more() {
    if (!told_) return;
    if (is_outdated()) return end_stream();
    try {
      text_ = told_->next();
      if (!text_.empty()) return send_text();
      wait_for_more();
    } catch (const std::exception &) {
      end_stream();
    }
  }

  void wait_for_more() {
    timer_->expires_after(sign_of_life);
    timer_->async_wait([weak = this->weak_from_this()](error_code error) {
      const auto self = weak.lock();
      if (error || !self || !self->told_ || self->is_sending_) return;
      self->text_ = ":\n\n";  // a comment
      self->send_text();
    });
  }

  void end_stream() {
    if (!std::exchange(told_, nullptr)) return;
    timer_->cancel();
    error_code ignored;
    wire().socket().shutdown(net::socket_base::shutdown_both, ignored);
  }

  void send(const http_reply &reply, bool keep_alive) {
    if (reply.stream && !head_) return begin_stream(reply);
    message_ = to_message(reply, keep_alive);
    if (head_) message_.body().clear();  // its length stays
    wire().expires_after(core_->options.idle);
    http::async_write(
        stream_, message_,
        [self = this->shared_from_this()](error_code error, std::size_t) { self->on_sent(error); });
  }

  void on_sent(const error_code &error) {
    if (error || !message_.keep_alive()) {
      close();
    } else {
      read();
    }
  }

  void close() {
    if constexpr (is_tls) {
      wire().expires_after(core_->options.idle);
      from_.waits(*this, true);
      stream_.async_shutdown([self = this->shared_from_this()](error_code) {
        self->from_.waits(*self, false);
        self->close_wire();
      });
    } else {
      close_wire();
    }
  }

  void close_wire() {
    error_code ignored;
    wire().socket().shutdown(net::socket_base::shutdown_send, ignored);
  }

  Stream stream_;
  std::shared_ptr<Core> core_;
  connections &from_;
  const std::shared_ptr<http_tls> tls_;
  bool is_counted_ = true;  // among the connections
  bool has_room_ = false;
  bool head_ = false;
  beast::flat_buffer buffer_{std::size_t{64} * 1024};
  std::optional<http::request_parser<http::string_body>> parser_;
  http::response<http::string_body> message_;

  // Of a stream.
  std::shared_ptr<http_stream> told_;
  std::string text_;
  bool is_sending_ = false;
  std::array<char, 256> unasked_{};
  std::optional<net::steady_timer> timer_;
};

}  // namespace lumd
