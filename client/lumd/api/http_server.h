// The server of the JSON API: HTTP/1.1 on a Unix socket and, read-only, on a TCP port, there with
// or without TLS. Everything a stranger can do to it is bounded: header and body sizes, handshakes,
// idle time, connections, of which the Unix socket has its own. One that waits for nothing goes
// when another needs its place.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lum_client {
class tls_context;
}

namespace lumd {

struct http_request {
  std::string method;  // "GET", "POST", ...
  std::string target;  // path and query as sent
  std::string body;
  std::string accept;         // what the peer would like to get; empty: anything
  std::string if_none_match;  // tags of what the peer has already
  std::string last_event_id;  // the header of that name: what the peer has of a stream already
  std::string user;    // whose process it comes from, for people; empty where that is not known
  std::string barred;  // why it may change nothing; empty where it may, and of one that only asks
};

// A reply without an end.
struct http_stream {
  virtual ~http_stream() = default;
  // What is to go out now; empty: nothing yet. On the thread of all connections; must wait for
  // nothing.
  virtual std::string next() = 0;
};

struct http_reply {
  unsigned status = 200;
  std::string content_type = "application/json";
  std::string body;
  std::string allow;                    // methods that the path knows; goes out with a 405
  std::string entity_tag;               // of the body, which goes out with it unless it is a 304
  std::string policy;                   // what a browser may do with the body
  std::shared_ptr<http_stream> stream;  // instead of the body
};

// Runs on a thread of the request's own, several at a time. An exception becomes a 500.
using http_handler = std::function<http_reply(const http_request &)>;

struct http_options {
  // Made with mode 0600, or 0660 for `group`; an abandoned one is replaced. Empty: none.
  std::filesystem::path socket;
  std::optional<gid_t> group;                          // whose members may look through the socket
  std::optional<std::uint16_t> tcp_port;               // 0: any free port
  std::string tcp_address = "127.0.0.1";               // of IPv4 or IPv6; "::" is every one of both
  std::shared_ptr<const lum_client::tls_context> tls;  // null: the TCP port speaks none
  std::vector<std::string> names = {};  // that the TCP port may be called by, in small letters
  std::size_t header_limit = std::size_t{8} * 1024;
  std::size_t body_limit = std::size_t{256} * 1024;
  std::size_t connections = 64;   // on each of the two
  std::size_t streams = 64;       // beside those
  std::chrono::seconds idle{15};  // for a request to come in, and for a reply to go out
};

// Why a server cannot be had, for example because another driver answers on the socket.
struct http_refusal {
  std::string text;
  bool is_of_folder = false;  // the socket's folder takes none; another may
};

class http_server {
 public:
  // Takes the socket and the port; connections wait until serve() is called. Returns null with
  // `refusal` saying what failed.
  static std::unique_ptr<http_server> open(const http_options &options, http_refusal &refusal);

  // As stop() with its default bound.
  ~http_server();
  http_server(const http_server &) = delete;
  http_server &operator=(const http_server &) = delete;

  // Where the TCP port is asked, such as "https://[::1]:9464/", or empty; the Unix socket, or
  // nothing.
  std::string tcp_url() const;
  const std::filesystem::path &socket() const;

  // What is not as the options have it, and has been done without.
  const std::vector<std::string> &lacks() const;

  // What the TCP port may be called by from now on, in small letters. Any thread.
  void set_names(std::vector<std::string> names);

  // What new connections to the TCP port speak TLS with; those that there are end with the request
  // that they are at. Returns false when that is what is in force already. One thread at a time.
  bool set_tls(std::shared_ptr<const lum_client::tls_context> tls);

  // Whether a request that comes from within is answered with `bound`.
  bool comes_round(const http_request &request, std::chrono::milliseconds bound) const;

  // Starts to answer. Once.
  void serve(http_handler handler);

  // There may be more to go out on the streams. Any thread; waits for nothing.
  void wake_streams() noexcept;

  // Removes the socket and ends the server's thread; a handler that still runs goes on, and its
  // reply is dropped. Returns false when the thread had not ended after `bound`; it is left behind.
  bool stop(std::chrono::milliseconds bound = std::chrono::milliseconds(500));

 private:
  struct core;
  explicit http_server(std::shared_ptr<core> state);
  std::shared_ptr<core> core_;
};

}  // namespace lumd
