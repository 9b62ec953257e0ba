// Why a node is not reached from afar, and what to do about it.
#pragma once

#include <chrono>
#include <string>
#include <system_error>

#include "api/destination.h"

namespace lumctl {

// What a handshake has come to.
struct tls_findings {
  unsigned long failure = 0;  // OpenSSL's code; 0: none
  int distrust = 0;           // of the node's certificate, as OpenSSL numbers it; 0: it is trusted
  std::string names;          // whose certificate it is, as far as it was looked at
};

// In one line each. Its name is not known here.
std::string why_no_address(const destination &node, const std::string &reason);
std::string why_no_address(const destination &node, std::chrono::milliseconds patience);
// `error` is what the attempt to reach it and to read its answer has come to.
std::string why_no_node(const destination &node, const std::error_code &error,
                        std::chrono::milliseconds patience);
std::string why_no_tls(const destination &node, const tls_findings &found);

}  // namespace lumctl
