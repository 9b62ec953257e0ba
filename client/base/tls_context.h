// What TLS is spoken with: certificates and keys from PEM files. TLS 1.2 is the least.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

struct ssl_ctx_st;

namespace lum_client {

struct tls_files {
  std::filesystem::path certificate;  // the own, behind it those that lead to its CA
  std::filesystem::path key;          // without a passphrase
  std::filesystem::path ca;           // who the peer's certificate has to come from
};

// Each connection that was begun with one goes on with it, also after its end.
class tls_context {
 public:
  // With a CA every client needs a certificate from it. Returns null with `error` saying which file
  // is wrong and how.
  static std::shared_ptr<const tls_context> of_server(const tls_files &files, std::string &error);
  // The server's certificate has to come from the CA, or without one from one that the system
  // trusts; the client has one of its own where it is named. As above.
  static std::shared_ptr<const tls_context> of_client(const tls_files &files, std::string &error);

  ssl_ctx_st *get() const { return context_.get(); }

  // Whether the own certificate is one for that name or address.
  bool is_for(const std::string &host) const;
  // The last day of the own certificate, "2027-01-31"; whether that has passed.
  const std::string &last_day() const { return last_day_; }
  bool is_over() const;
  // Another one for each other content of the files.
  const std::string &digest() const { return digest_; }

 private:
  struct builder;
  explicit tls_context(std::shared_ptr<ssl_ctx_st> context) : context_(std::move(context)) {}

  std::shared_ptr<ssl_ctx_st> context_;
  std::string last_day_;
  std::string digest_;
};

}  // namespace lum_client
