// clang-format off
#include <utility>
// clang-format on

#include "api/http_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "api/connections.h"
#include "api/own_host.h"
#include "api/peer_user.h"
#include "api/problem.h"
#include "api/unix_listener.h"
#include "lum_linux/lanes.h"

namespace lumd {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;

constexpr unsigned http_version = 11;
constexpr std::chrono::milliseconds out_of_memory_pause(100);
// So often something goes out on a stream that has nothing to tell: whoever reads it sees that it
// is there, and the server whether anybody does.
constexpr std::chrono::seconds sign_of_life(15);

http::response<http::string_body> to_message(const http_reply &reply, bool keep_alive) {
  http::response<http::string_body> message(static_cast<http::status>(reply.status), http_version);
  if (reply.status != 304) message.set(http::field::content_type, reply.content_type);
  message.set("X-Content-Type-Options", "nosniff");  // a module's texts are never markup
  // What has a tag may be kept, and is asked for again each time.
  message.set(http::field::cache_control, reply.entity_tag.empty() ? "no-store" : "no-cache");
  if (!reply.entity_tag.empty()) message.set(http::field::etag, reply.entity_tag);
  if (!reply.policy.empty()) message.set("Content-Security-Policy", reply.policy);
  if (!reply.allow.empty()) message.set(http::field::allow, reply.allow);
  message.keep_alive(keep_alive);
  message.body() = reply.body;
  message.prepare_payload();
  if (reply.status == 304) message.erase(http::field::content_length);  // it would be the body's
  return message;
}

// What goes back for a request that could not be read; nothing does when the peer just went away.
std::optional<http_reply> answer_to_unreadable(const error_code &error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) {
    return problem_reply(431, "the request's header is too long");
  }
  if (error == http::error::body_limit) {
    return problem_reply(413, "the request's body is too long");
  }
  if (error.category() == http::make_error_code(http::error::bad_method).category() &&
      error != http::error::end_of_stream && error != http::error::partial_message) {
    return problem_reply(400, "not a valid HTTP request");
  }
  return std::nullopt;
}

std::string why_not_listening(std::uint16_t port, const error_code &failure) {
  const std::string number = std::to_string(port);
  std::string text = "cannot listen on 127.0.0.1:" + number +
                     " (http_port in the description): " + failure.message();
  if (failure != net::error::address_in_use) return text;
  return text + ". Another lumd or another program has it; \"ss -ltnp 'sport = :" + number +
         "'\" names it";
}

// A connection that waits for what there is to tell.
struct waiting_stream {
  virtual ~waiting_stream() = default;
  virtual void wake() = 0;  // any thread
};

// A header that may be given several times, as the one list that it means.
std::string list_of(const http::fields &fields, http::field header) {
  std::string list;
  const auto [first, last] = fields.equal_range(header);
  std::for_each(first, last, [&list](const auto &one) {
    list += (list.empty() ? "" : ",") + std::string(one.value());
  });
  return list;
}

// What a reader of a stream gives back.
constexpr const char *last_event_id = "Last-Event-ID";

// Whether a header is given with anything but `known`.
bool has_other(const http::fields &fields, http::field header, const char *known) {
  const auto [first, last] = fields.equal_range(header);
  return std::any_of(first, last,
                     [&](const auto &one) { return !beast::iequals(one.value(), known); });
}

// Of a request that is not what it seems. Where its body ends may not be known either, so nothing
// that comes behind it is a request.
std::optional<http_reply> refusal_of_header(const http::fields &fields) {
  if (has_other(fields, http::field::transfer_encoding, "chunked")) {
    return problem_reply(
        501, "the request's Transfer-Encoding is unknown here, expected chunked or none");
  }
  if (has_other(fields, http::field::content_encoding, "identity")) {
    return problem_reply(415,
                         "the request's Content-Encoding is unknown here: send the body as it is");
  }
  for (const char *const header : {"Host", last_event_id}) {
    if (fields.count(header) > 1) {
      return problem_reply(400, "the request has more than one " + std::string(header));
    }
  }
  return std::nullopt;
}

}  // namespace

struct http_server::core : std::enable_shared_from_this<http_server::core> {
  explicit core(const http_options &chosen)
      : options(chosen),
        owners(chosen.connections),
        strangers(chosen.connections),
        // As many as there can be requests: nobody waits for another's.
        handlers("lumd-http", {4 * chosen.connections, 0}) {}  // a thread outlives its reply

  const http_options options;
  connections owners;
  connections strangers;
  lum_linux::lanes handlers;
  std::atomic<std::uint64_t> next_lane{0};
  net::io_context loop;
  net::local::stream_protocol::acceptor local{loop};
  net::ip::tcp::acceptor tcp{loop};
  std::uint16_t port = 0;
  unix_listener listener;
  http_handler handler;
  std::mutex names_mutex;
  std::vector<std::string> names = options.names;  // under names_mutex

  std::mutex streams_mutex;  // guards streams
  std::list<std::weak_ptr<waiting_stream>> streams;

  std::mutex mutex;  // guards running
  std::condition_variable ended;
  unsigned running = 0;
  std::vector<std::thread> threads;

  bool is_called(const std::string &host) {
    const std::lock_guard lock(names_mutex);
    return is_own_host(host, names);
  }
  bool open_local(std::string &error);
  bool open_tcp(std::string &error);
  bool add_stream(const std::shared_ptr<waiting_stream> &added);
  void run();
  template <typename Protocol>
  void accept(net::basic_socket_acceptor<Protocol> &acceptor, connections &from);
  template <typename Protocol>
  void begin(net::basic_socket_acceptor<Protocol> &acceptor, connections &from);
};

namespace {

// One connection: reads a request, answers it, and so on until either side has had enough.
template <typename Protocol, typename Core>
class session : public std::enable_shared_from_this<session<Protocol, Core>>,
                public waiting_stream,
                private connections::one {
 public:
  session(typename Protocol::socket socket, std::shared_ptr<Core> core, connections &from)
      : stream_(std::move(socket)), core_(std::move(core)), from_(from) {
    has_room_ = from_.add(*this);
  }
  ~session() override { leave_connections(); }
  session(const session &) = delete;
  session &operator=(const session &) = delete;

  void wake() override {
    net::post(stream_.get_executor(), [weak = this->weak_from_this()] {
      const auto self = weak.lock();
      if (self && !self->is_sending_) self->send_more();
    });
  }

  void start() {
    if (has_room_) {
      read();
    } else {
      send(problem_reply(503, "too many connections"), false);
    }
  }

 private:
  void read() {
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(core_->options.header_limit));
    parser_->body_limit(core_->options.body_limit);
    stream_.expires_after(core_->options.idle);
    from_.waits(*this, true);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = this->shared_from_this()](error_code error, std::size_t) { self->on_read(error); });
  }

  // The clock runs out for it, as it would have later.
  void give_way() override {
    net::post(stream_.get_executor(), [weak = this->weak_from_this()] {
      if (const auto self = weak.lock()) self->stream_.cancel();
    });
  }

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
    const bool keep_alive = message.keep_alive();
    http_request request;
    request.method = std::string(message.method_string());
    request.target = std::string(message.target());
    request.body = message.body();
    request.accept = list_of(message, http::field::accept);
    request.if_none_match = list_of(message, http::field::if_none_match);
    request.last_event_id = std::string(message[last_event_id]);
    if (request.method != "GET") request.user = peer();
    request.read_only = is_stranger();
    head_ = request.method == "HEAD";
    if (head_) request.method = "GET";
    stream_.expires_never();
    if (const auto refused = refusal_of_header(message)) {
      send(*refused, false);
      return;
    }
    // Nobody's page changes anything, even where the socket has been passed on to a browser.
    if (request.method != "GET" && message.find(http::field::origin) != message.end()) {
      send(problem_reply(403, "a page in a browser may only look"), false);
      return;
    }
    if (is_stranger() && !core_->is_called(std::string(message[http::field::host]))) {
      send(problem_reply(421, "this node has another name: see http_names in its description"),
           false);
      return;
    }
    pass_on(std::move(request), keep_alive);
  }

  bool is_stranger() const { return &from_ == &core_->strangers; }

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

  // The peer's user; nothing on a socket that does not tell.
  std::string peer() {
    ucred credentials = {};
    socklen_t size = sizeof credentials;
    if (is_stranger() || ::getsockopt(stream_.socket().native_handle(), SOL_SOCKET, SO_PEERCRED,
                                      &credentials, &size) != 0) {
      return {};
    }
    return name_of_user(credentials.uid);
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
    stream_.expires_never();
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

  void send_text() {
    is_sending_ = true;
    stream_.expires_after(core_->options.idle);
    net::async_write(stream_, net::buffer(text_),
                     [self = this->shared_from_this()](error_code error, std::size_t) {
                       self->is_sending_ = false;
                       if (error) return self->end_stream();
                       self->send_more();
                     });
  }

  void send_more() {
    if (!told_) return;
    text_ = told_->next();
    if (!text_.empty()) return send_text();
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
    stream_.socket().shutdown(Protocol::socket::shutdown_both, ignored);
  }

  void send(const http_reply &reply, bool keep_alive) {
    if (reply.stream && !head_) return begin_stream(reply);
    message_ = to_message(reply, keep_alive);
    if (head_) message_.body().clear();  // its length stays
    stream_.expires_after(core_->options.idle);
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
    error_code ignored;
    stream_.socket().shutdown(Protocol::socket::shutdown_send, ignored);
  }

  beast::basic_stream<Protocol> stream_;
  std::shared_ptr<Core> core_;
  connections &from_;
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

}  // namespace

bool http_server::core::open_local(std::string &error) {
  const int fd = listener.open(options.socket, error);
  if (fd < 0) return false;
  error_code failure;
  local.assign(net::local::stream_protocol(), fd, failure);
  if (failure) error = options.socket.native() + ": " + failure.message();
  return !failure;
}

bool http_server::core::add_stream(const std::shared_ptr<waiting_stream> &added) {
  const std::lock_guard lock(streams_mutex);
  streams.remove_if([](const auto &one) { return one.expired(); });
  if (streams.size() >= options.streams) return false;
  streams.push_back(added);
  return true;
}

bool http_server::core::open_tcp(std::string &error) {
  const net::ip::tcp::endpoint endpoint(net::ip::address_v4::loopback(), *options.tcp_port);
  error_code failure;
  tcp.open(endpoint.protocol(), failure);
  if (!failure) tcp.set_option(net::socket_base::reuse_address(true), failure);
  if (!failure) tcp.bind(endpoint, failure);
  if (!failure) tcp.listen(net::socket_base::max_listen_connections, failure);
  if (!failure) port = tcp.local_endpoint(failure).port();
  if (failure) error = why_not_listening(*options.tcp_port, failure);
  return !failure;
}

// Whatever goes wrong with one connection, a lack of memory included, the next one is waited for.
template <typename Protocol>
void http_server::core::accept(net::basic_socket_acceptor<Protocol> &acceptor, connections &from) {
  for (;;) {
    try {
      return begin(acceptor, from);
    } catch (const std::exception &) {
      std::this_thread::sleep_for(out_of_memory_pause);
    }
  }
}

template <typename Protocol>
void http_server::core::begin(net::basic_socket_acceptor<Protocol> &acceptor, connections &from) {
  acceptor.async_accept(
      net::make_strand(loop),
      [this, &acceptor, &from](error_code error, typename Protocol::socket socket) {
        if (error == net::error::operation_aborted) return;
        try {
          if (!error) {
            std::make_shared<session<Protocol, core>>(std::move(socket), shared_from_this(), from)
                ->start();
          }
        } catch (const std::exception &) {
          error = net::error::no_memory;
        }
        // Out of descriptors, most likely: some may come free.
        if (error) std::this_thread::sleep_for(out_of_memory_pause);
        accept(acceptor, from);
      });
}

void http_server::core::run() {
  for (;;) {
    try {
      loop.run();
      break;
    } catch (const std::exception &) {
      // One connection's failure, such as no memory for it; the others go on.
    }
  }
  std::lock_guard lock(mutex);
  --running;
  ended.notify_all();
}

http_server::http_server(std::shared_ptr<core> state) : core_(std::move(state)) {}

std::unique_ptr<http_server> http_server::open(const http_options &options, http_refusal &refusal) {
  auto state = std::make_shared<core>(options);
  auto server = std::unique_ptr<http_server>(new http_server(state));
  refusal.is_of_folder = false;
  if (!options.socket.empty() && !state->open_local(refusal.text)) {
    refusal.is_of_folder = state->listener.folder_is_unusable();
    return nullptr;
  }
  if (options.tcp_port && !state->open_tcp(refusal.text)) return nullptr;
  return server;
}

http_server::~http_server() { stop(); }

std::uint16_t http_server::tcp_port() const { return core_->port; }

const std::filesystem::path &http_server::socket() const { return core_->options.socket; }

void http_server::set_names(std::vector<std::string> names) {
  const std::lock_guard lock(core_->names_mutex);
  core_->names = std::move(names);
}

void http_server::serve(http_handler handler) {
  core_->handler = std::move(handler);
  if (core_->local.is_open()) core_->accept(core_->local, core_->owners);
  if (core_->tcp.is_open()) core_->accept(core_->tcp, core_->strangers);
  core_->running = core_->options.threads;
  for (unsigned i = 0; i < core_->options.threads; ++i) {
    core_->threads.emplace_back([state = core_] { state->run(); });
  }
}

void http_server::wake_streams() noexcept {
  try {
    const std::lock_guard lock(core_->streams_mutex);
    for (const auto &one : core_->streams) {
      if (const auto stream = one.lock()) stream->wake();
    }
  } catch (const std::bad_alloc &) {
    // What there is goes out with what comes next, or with the next sign of life.
  }
}

bool http_server::stop(std::chrono::milliseconds bound) {
  core_->listener.remove();
  core_->loop.stop();
  core_->handlers.stop();
  std::unique_lock lock(core_->mutex);
  const bool all = core_->ended.wait_for(lock, bound, [this] { return core_->running == 0; });
  lock.unlock();
  for (std::thread &thread : core_->threads) {
    if (all) {
      thread.join();
    } else {
      thread.detach();
    }
  }
  core_->threads.clear();
  return all;
}

}  // namespace lumd
