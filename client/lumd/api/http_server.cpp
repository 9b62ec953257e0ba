// clang-format off
#include <utility>
// clang-format on

#include "api/http_server.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace lumd {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::system::error_code;

constexpr unsigned http_version = 11;

std::string error_body(const char *text) { return "{\"error\":\"" + std::string(text) + "\"}\n"; }

http::response<http::string_body> to_message(const http_reply &reply, bool keep_alive) {
  http::response<http::string_body> message(static_cast<http::status>(reply.status), http_version);
  message.set(http::field::content_type, reply.content_type);
  message.set(http::field::cache_control, "no-store");
  if (!reply.allow.empty()) message.set(http::field::allow, reply.allow);
  message.keep_alive(keep_alive);
  message.body() = reply.body;
  message.prepare_payload();
  return message;
}

// What goes back for a request that could not be read; nothing does when the peer just went away.
std::optional<http_reply> answer_to_unreadable(const error_code &error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) {
    return http_reply{431, "application/json", error_body("the request's header is too long"), {}};
  }
  if (error == http::error::body_limit) {
    return http_reply{413, "application/json", error_body("the request's body is too long"), {}};
  }
  if (error.category() == http::make_error_code(http::error::bad_method).category() &&
      error != http::error::end_of_stream && error != http::error::partial_message) {
    return http_reply{400, "application/json", error_body("not a valid HTTP request"), {}};
  }
  return std::nullopt;
}

// A listening socket that takes its path with it when it goes, if the path is still its own.
class socket_path {
 public:
  void own(const std::filesystem::path &path) {
    struct stat found = {};
    if (::stat(path.c_str(), &found) != 0) return;
    path_ = path;
    inode_ = found.st_ino;
  }
  void remove() {
    struct stat found = {};
    if (!path_.empty() && ::stat(path_.c_str(), &found) == 0 && found.st_ino == inode_) {
      ::unlink(path_.c_str());
    }
    path_.clear();
  }

 private:
  std::filesystem::path path_;
  ino_t inode_ = 0;
};

}  // namespace

struct http_server::core : std::enable_shared_from_this<http_server::core> {
  http_options options;
  net::io_context loop;
  net::io_context changes;  // has threads of its own
  net::executor_work_guard<net::io_context::executor_type> changes_to_come{changes.get_executor()};
  net::local::stream_protocol::acceptor local{loop};
  net::ip::tcp::acceptor tcp{loop};
  std::uint16_t port = 0;
  socket_path path;
  http_handler handler;
  std::atomic<std::size_t> open_connections{0};

  std::mutex mutex;  // guards running
  std::condition_variable ended;
  unsigned running = 0;
  std::vector<std::thread> threads;

  bool open_local(std::string &error);
  bool open_tcp(std::string &error);
  void run(net::io_context &what);
  template <typename Protocol>
  void accept(net::basic_socket_acceptor<Protocol> &acceptor, bool read_only);
};

namespace {

// One connection: reads a request, answers it, and so on until either side has had enough.
template <typename Protocol, typename Core>
class session : public std::enable_shared_from_this<session<Protocol, Core>> {
 public:
  session(typename Protocol::socket socket, std::shared_ptr<Core> core, bool read_only)
      : stream_(std::move(socket)), core_(std::move(core)), read_only_(read_only) {
    ++core_->open_connections;
  }
  ~session() { --core_->open_connections; }
  session(const session &) = delete;
  session &operator=(const session &) = delete;

  void start() {
    if (core_->open_connections > core_->options.connections) {
      stream_.expires_after(core_->options.idle);
      send({503, "application/json", error_body("too many connections"), {}}, false);
      return;
    }
    read();
  }

 private:
  void read() {
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(core_->options.header_limit));
    parser_->body_limit(core_->options.body_limit);
    stream_.expires_after(core_->options.idle);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = this->shared_from_this()](error_code error, std::size_t) { self->on_read(error); });
  }

  void on_read(const error_code &error) {
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
    request.accept = std::string(message[http::field::accept]);
    request.read_only = read_only_;
    stream_.expires_never();
    if (request.method == "GET") {
      send(handle(request), keep_alive);
    } else {
      change(std::move(request), keep_alive);
    }
  }

  // A change may have to wait for a module; those who only look are answered meanwhile.
  void change(http_request request, bool keep_alive) {
    net::post(core_->changes,
              [self = this->shared_from_this(), request = std::move(request), keep_alive] {
                auto reply = std::make_shared<http_reply>(self->handle(request));
                net::post(self->stream_.get_executor(),
                          [self, reply, keep_alive] { self->send(*reply, keep_alive); });
              });
  }

  http_reply handle(const http_request &request) noexcept {
    try {
      return core_->handler(request);
    } catch (const std::exception &) {
    }
    return {500, "application/json", error_body("the driver could not answer"), {}};
  }

  void send(const http_reply &reply, bool keep_alive) {
    message_ = to_message(reply, keep_alive);
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
  bool read_only_;
  beast::flat_buffer buffer_{64 * 1024};
  std::optional<http::request_parser<http::string_body>> parser_;
  http::response<http::string_body> message_;
};

bool somebody_answers(const std::filesystem::path &path) {
  net::io_context loop;
  net::local::stream_protocol::socket probe(loop);
  error_code error;
  probe.connect(net::local::stream_protocol::endpoint(path.string()), error);
  return !error;
}

}  // namespace

bool http_server::core::open_local(std::string &error) {
  const std::string &name = options.socket.native();
  if (name.size() >= sizeof(sockaddr_un::sun_path)) {
    error = name + ": the path is too long for a socket";
    return false;
  }
  struct stat found = {};
  if (::lstat(name.c_str(), &found) == 0) {
    if (!S_ISSOCK(found.st_mode)) {
      error = name + ": there is something else than a socket";
      return false;
    }
    if (somebody_answers(options.socket)) {
      error = name + ": another driver answers on this socket";
      return false;
    }
    ::unlink(name.c_str());
  }
  error_code failure;
  local.open(net::local::stream_protocol(), failure);
  if (!failure) local.bind(net::local::stream_protocol::endpoint(name), failure);
  // Nobody can connect between bind and listen, so the mode is right from the first connection on.
  if (!failure && ::chmod(name.c_str(), S_IRUSR | S_IWUSR) != 0) {
    failure = error_code(errno, boost::system::system_category());
  }
  if (!failure) local.listen(net::socket_base::max_listen_connections, failure);
  if (failure) {
    error = name + ": " + failure.message();
    return false;
  }
  path.own(options.socket);
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
  if (failure) error = "127.0.0.1:" + std::to_string(*options.tcp_port) + ": " + failure.message();
  return !failure;
}

template <typename Protocol>
void http_server::core::accept(net::basic_socket_acceptor<Protocol> &acceptor, bool read_only) {
  acceptor.async_accept(net::make_strand(loop), [this, &acceptor, read_only](
                                                    error_code error,
                                                    typename Protocol::socket socket) {
    if (error == net::error::operation_aborted) return;
    if (!error) {
      std::make_shared<session<Protocol, core>>(std::move(socket), shared_from_this(), read_only)
          ->start();
      accept(acceptor, read_only);
      return;
    }
    // Out of descriptors, most likely: try again when some may have come free.
    auto pause = std::make_shared<net::steady_timer>(loop, std::chrono::milliseconds(100));
    pause->async_wait(
        [this, &acceptor, read_only, pause](error_code) { accept(acceptor, read_only); });
  });
}

void http_server::core::run(net::io_context &what) {
  for (;;) {
    try {
      what.run();
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

std::unique_ptr<http_server> http_server::open(const http_options &options, std::string &error) {
  auto state = std::make_shared<core>();
  state->options = options;
  auto server = std::unique_ptr<http_server>(new http_server(state));
  if (!state->open_local(error)) return nullptr;
  if (options.tcp_port && !state->open_tcp(error)) return nullptr;
  return server;
}

http_server::~http_server() { stop(); }

std::uint16_t http_server::tcp_port() const { return core_->port; }

void http_server::serve(http_handler handler) {
  core_->handler = std::move(handler);
  core_->accept(core_->local, false);
  if (core_->tcp.is_open()) core_->accept(core_->tcp, true);
  core_->running = core_->options.threads + core_->options.changing_threads;
  for (unsigned i = 0; i < core_->options.threads; ++i) {
    core_->threads.emplace_back([state = core_] { state->run(state->loop); });
  }
  for (unsigned i = 0; i < core_->options.changing_threads; ++i) {
    core_->threads.emplace_back([state = core_] { state->run(state->changes); });
  }
}

bool http_server::stop(std::chrono::milliseconds bound) {
  core_->path.remove();
  core_->loop.stop();
  core_->changes.stop();
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
