// clang-format off
#include <utility>
// clang-format on

#include "api/http_server.h"

#include <netinet/in.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <list>
#include <mutex>
#include <thread>

#include "api/http_session.h"
#include "api/unix_listener.h"

namespace lumd {
namespace {

constexpr std::chrono::milliseconds out_of_memory_pause(100);

std::string in_url(const net::ip::tcp::endpoint &endpoint) {
  const std::string address = endpoint.address().to_string();
  const std::string port = std::to_string(endpoint.port());
  return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" + port;
}

std::string why_not_listening(const net::ip::tcp::endpoint &endpoint, const error_code &failure) {
  std::string text = "cannot listen on " + in_url(endpoint) +
                     " (http_address and http_port in the description): " + failure.message();
  if (failure == net::error::address_family_not_supported) {
    return text + ". IPv6 is off here, or the unit's RestrictAddressFamilies lacks AF_INET6";
  }
  if (failure != net::error::address_in_use) return text;
  return text + ". Another lumd or another program has it; \"ss -ltnp 'sport = :" +
         std::to_string(endpoint.port()) + "'\" names it";
}

}  // namespace

struct http_server::core : std::enable_shared_from_this<http_server::core> {
  explicit core(const http_options &chosen)
      : options(chosen),
        owners(chosen.connections),
        strangers(chosen.connections),
        // As many as there can be requests: nobody waits for another's.
        handlers("lumd-http", {4 * chosen.connections, 0}) {}  // a thread outlives its reply

  // Where connections of one kind come in.
  template <typename Protocol>
  struct door {
    explicit door(net::io_context &loop) : acceptor(loop), pause(loop) {}

    net::basic_socket_acceptor<Protocol> acceptor;
    net::steady_timer pause;  // runs while none can be taken
  };

  const http_options options;
  connections owners;
  connections strangers;
  lum_linux::lanes handlers;
  std::atomic<std::uint64_t> next_lane{0};
  // Run by one thread. A strand for each connection would let several run it; where there is no
  // memory to pass a strand on, what waits in it waits for ever, or the process ends.
  net::io_context loop{1};
  door<net::local::stream_protocol> local{loop};
  door<net::ip::tcp> tcp{loop};
  net::ip::tcp::endpoint tcp_at;  // once it is open
  std::vector<std::string> lacks;
  unix_listener listener;
  http_handler handler;

  std::mutex calls_mutex;  // guards names and spoken_tls
  std::vector<std::string> names = options.names;
  std::shared_ptr<http_tls> spoken_tls;

  std::mutex streams_mutex;  // guards streams
  std::list<std::weak_ptr<waiting_stream>> streams;

  std::mutex mutex;  // guards running
  std::condition_variable ended;
  bool running = false;
  std::thread thread;

  bool is_called(const std::string &host, const std::string &address) {
    const std::lock_guard lock(calls_mutex);
    return is_own_host(host, address, names);
  }
  // Null where none is spoken.
  std::shared_ptr<http_tls> tls() {
    const std::lock_guard lock(calls_mutex);
    return spoken_tls;
  }
  void set_tls(std::shared_ptr<const lum_client::tls_context> own) {
    auto made = own ? std::make_shared<http_tls>(std::move(own)) : nullptr;
    const std::lock_guard lock(calls_mutex);
    spoken_tls.swap(made);
  }
  bool open_local(std::string &error);
  bool open_tcp(std::string &error);
  void bind_tcp(const net::ip::tcp::endpoint &endpoint, error_code &failure);
  bool add_stream(const std::shared_ptr<waiting_stream> &added);
  void run();
  template <typename Protocol>
  void open(door<Protocol> &at);
  template <typename Protocol>
  void wait_at(door<Protocol> &at);
  template <typename Protocol>
  bool take(door<Protocol> &at);
  template <typename Protocol>
  void rest(door<Protocol> &at);
  void meet(net::local::stream_protocol::socket socket);
  void meet(net::ip::tcp::socket socket);
};

bool http_server::core::open_local(std::string &error) {
  const int fd = listener.open(options.socket, options.group, error);
  if (fd < 0) return false;
  if (const std::string &why = listener.why_no_group(); !why.empty()) {
    lacks.push_back(options.socket.native() + " is not for its socket_group: " + why +
                    ". The driver's user has to be in it; in a drop-in of the unit, "
                    "SupplementaryGroups=");
  }
  error_code failure;
  local.acceptor.assign(net::local::stream_protocol(), fd, failure);
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

// A node is up before its network may be: it then listens where its address is going to be.
void http_server::core::bind_tcp(const net::ip::tcp::endpoint &endpoint, error_code &failure) {
  tcp.acceptor.bind(endpoint, failure);
  if (failure != boost::system::errc::address_not_available) return;
  tcp.acceptor.set_option(net::detail::socket_option::boolean<IPPROTO_IP, IP_FREEBIND>(true),
                          failure);
  if (!failure) tcp.acceptor.bind(endpoint, failure);
  lacks.push_back("this machine does not have the address " + endpoint.address().to_string() +
                  " (http_address in the description) now: nobody reaches the driver there until "
                  "it has");
}

bool http_server::core::open_tcp(std::string &error) {
  error_code failure;
  const auto address = net::ip::make_address(options.tcp_address, failure);
  const net::ip::tcp::endpoint endpoint(address, *options.tcp_port);
  if (!failure) tcp.acceptor.open(endpoint.protocol(), failure);
  if (!failure && address.is_v6())
    tcp.acceptor.set_option(net::ip::v6_only(!address.is_unspecified()), failure);
  if (!failure) tcp.acceptor.set_option(net::socket_base::reuse_address(true), failure);
  if (!failure) bind_tcp(endpoint, failure);
  if (!failure) tcp.acceptor.listen(net::socket_base::max_listen_connections, failure);
  if (!failure) tcp_at = tcp.acceptor.local_endpoint(failure);
  if (failure) error = why_not_listening(endpoint, failure);
  return !failure;
}

void http_server::core::meet(net::local::stream_protocol::socket socket) {
  std::make_shared<http_session<local_stream, core>>(shared_from_this(), owners, nullptr,
                                                     std::move(socket))
      ->start();
}

void http_server::core::meet(net::ip::tcp::socket socket) {
  if (auto tls = this->tls()) {
    net::ssl::context &context = tls->context;
    std::make_shared<http_session<tls_stream, core>>(shared_from_this(), strangers, std::move(tls),
                                                     std::move(socket), context)
        ->start();
  } else {
    std::make_shared<http_session<plain_stream, core>>(shared_from_this(), strangers, nullptr,
                                                       std::move(socket))
        ->start();
  }
}

template <typename Protocol>
void http_server::core::open(door<Protocol> &at) {
  if (!at.acceptor.is_open()) return;
  at.acceptor.non_blocking(true);
  wait_at(at);
}

// Whatever goes wrong with one connection, a lack of memory included, the next one is waited for.
// A connection is waited for and taken in two steps: asio's one for both, where there is no memory
// for what it has taken, drops whoever waits together with it.
template <typename Protocol>
void http_server::core::wait_at(door<Protocol> &at) {
  for (;;) {
    try {
      return at.acceptor.async_wait(net::socket_base::wait_read, [this, &at](error_code error) {
        if (error == net::error::operation_aborted) return;
        if (error || !take(at)) return rest(at);
        wait_at(at);
      });
    } catch (const std::exception &) {
      std::this_thread::sleep_for(out_of_memory_pause);
    }
  }
}

// False when there is no memory or no descriptor for it. A connection that is taken and not served
// is closed.
template <typename Protocol>
bool http_server::core::take(door<Protocol> &at) {
  try {
    error_code error;
    typename Protocol::socket socket(loop);
    at.acceptor.accept(socket, error);
    if (!error) meet(std::move(socket));
    return !error || error == net::error::would_block || error == net::error::connection_aborted;
  } catch (const std::exception &) {
    return false;
  }
}

// Some may come free meanwhile.
template <typename Protocol>
void http_server::core::rest(door<Protocol> &at) {
  try {
    at.pause.expires_after(out_of_memory_pause);
    at.pause.async_wait([this, &at](const error_code &) { wait_at(at); });
  } catch (const std::exception &) {
    std::this_thread::sleep_for(out_of_memory_pause);
    wait_at(at);
  }
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
  running = false;
  ended.notify_all();
}

http_server::http_server(std::shared_ptr<core> state) : core_(std::move(state)) {}

std::unique_ptr<http_server> http_server::open(const http_options &options, http_refusal &refusal) {
  auto state = std::make_shared<core>(options);
  state->set_tls(options.tls);
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

std::string http_server::tcp_url() const {
  if (core_->tcp_at.port() == 0) return {};
  return (core_->tls() ? "https://" : "http://") + in_url(core_->tcp_at) + "/";
}

const std::vector<std::string> &http_server::lacks() const { return core_->lacks; }

const std::filesystem::path &http_server::socket() const { return core_->options.socket; }

void http_server::set_names(std::vector<std::string> names) {
  const std::lock_guard lock(core_->calls_mutex);
  core_->names = std::move(names);
}

bool http_server::set_tls(std::shared_ptr<const lum_client::tls_context> tls) {
  const auto before = core_->tls();
  const bool is_same =
      (before == nullptr) == (tls == nullptr) && (!tls || before->own->digest() == tls->digest());
  if (!is_same) core_->set_tls(std::move(tls));
  return !is_same;
}

bool http_server::comes_round(const http_request &request, std::chrono::milliseconds bound) const {
  const auto answered = std::make_shared<std::promise<bool>>();
  auto answer = answered->get_future();
  net::post(core_->loop, [state = core_, request, answered] {
    state->handlers.post(state->next_lane++, [state, request, answered] {
      bool good = false;
      try {
        good = state->handler(request).status == 200;
      } catch (const std::exception &) {
      }
      answered->set_value(good);
    });
  });
  return answer.wait_for(bound) == std::future_status::ready && answer.get();
}

void http_server::serve(http_handler handler) {
  core_->handler = std::move(handler);
  core_->open(core_->local);
  core_->open(core_->tcp);
  core_->running = true;
  core_->thread = std::thread([state = core_] { state->run(); });
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
  const bool all = core_->ended.wait_for(lock, bound, [this] { return !core_->running; });
  lock.unlock();
  if (!core_->thread.joinable()) return all;
  if (all) {
    core_->thread.join();
  } else {
    core_->thread.detach();
  }
  return all;
}

}  // namespace lumd
