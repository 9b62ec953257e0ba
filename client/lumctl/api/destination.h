// Where a driver is asked.
#pragma once

#include <string>

namespace lumctl {

struct destination {
  std::string socket;            // on its node
  std::string url = {};          // from afar, in place of the socket: https://NODE:PORT
  std::string ca = {};           // a file: who the node's certificate has to come from
  std::string certificate = {};  // a file: the own, for a node that wants one
  std::string key = {};          // a file; empty: in the certificate's

  const std::string &name() const { return url.empty() ? socket : url; }
};

// A URL's parts.
struct node_address {
  bool tls = false;
  std::string host;  // without brackets
  std::string port;
  std::string authority;  // as it was given, without the scheme
};

// Returns what is wrong with the URL, or nothing.
std::string read_url(const std::string &url, node_address &address);

// What of its parts does not go together, or nothing.
std::string complaint_of(const destination &driver);

}  // namespace lumctl
