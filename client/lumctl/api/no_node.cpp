#include "api/no_node.h"

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

namespace lumctl {
namespace {

std::string why_not_trusted(const destination &node, const tls_findings &found) {
  const std::string reason = X509_verify_cert_error_string(found.distrust);
  switch (found.distrust) {
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return fmt::format(
          "the certificate of {} is for {}: ask for the node by a name or an address that stands "
          "in "
          "its certificate",
          node.url, found.names.empty() ? "nobody by name" : found.names);
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return fmt::format(
          "the certificate of {} is not valid now ({}): give the node another, or "
          "set this machine's clock",
          node.url, reason);
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
      return fmt::format(
          "the certificate of {} comes from nobody who is trusted here ({}): --ca "
          "FILE says whose certificates are",
          node.url, reason);
    default:
      return fmt::format("the certificate of {} is not accepted: {}", node.url, reason);
  }
}

}  // namespace

std::string why_no_address(const destination &node, const std::string &reason) {
  return fmt::format("there is no address for {}: {}", node.url, reason);
}

std::string why_no_address(const destination &node, std::chrono::milliseconds patience) {
  return fmt::format(
      "nobody has said within {} s which address {} has: the name server of this machine does not "
      "answer. A longer wait: --timeout SECONDS, or none with the address itself",
      std::chrono::duration<double>(patience).count(), node.url);
}

std::string why_no_node(const destination &node, const std::error_code &error,
                        std::chrono::milliseconds patience) {
  if (error == std::errc::timed_out) {
    return fmt::format(
        "{} has not answered within {} s: nothing comes through, for example because the unit of "
        "lumd there lets nobody in, or it is slow. A longer wait: --timeout SECONDS",
        node.url, std::chrono::duration<double>(patience).count());
  }
  return fmt::format(
      "no driver answers at {}: {}. Is lumd running there, with this http_port and an http_address "
      "that is reached from here?",
      node.url, error.message());
}

std::string why_no_tls(const destination &node, const tls_findings &found) {
  if (found.distrust != X509_V_OK) return why_not_trusted(node, found);
  const char *const text = ERR_reason_error_string(found.failure);
  const std::string reason = text == nullptr ? "no reason given" : text;
  switch (ERR_GET_REASON(found.failure)) {
    case SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED:
    case SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE:
      if (!node.certificate.empty()) break;
      return fmt::format("{} wants a certificate of whoever asks: --cert FILE, and --key FILE",
                         node.url);
    case SSL_R_TLSV1_ALERT_UNKNOWN_CA:
    case SSL_R_SSLV3_ALERT_BAD_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN:
    case SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE:
      return fmt::format(
          "{} does not take the certificate {} ({}): it has to come from the CA in "
          "the node's http_client_ca",
          node.url, node.certificate, reason);
    case SSL_R_WRONG_VERSION_NUMBER:
    case SSL_R_PACKET_LENGTH_TOO_LONG:
    case SSL_R_HTTP_REQUEST:
      return fmt::format("what answers at {} speaks no TLS: ask it by http://", node.url);
    default:
      break;
  }
  return fmt::format("TLS with {} has failed: {}", node.url, reason);
}

}  // namespace lumctl
