#include "base/tls_context.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>

#include "base/descriptor.h"

namespace lum_client {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t largest_file = std::size_t{1} << 20;

using bio_pointer = std::unique_ptr<BIO, decltype(&BIO_free)>;
using certificate_pointer = std::unique_ptr<X509, decltype(&X509_free)>;
using key_pointer = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// A text that is wiped with its owner: it may be a key.
struct wiped_text {
  std::string text;
  ~wiped_text() { OPENSSL_cleanse(text.data(), text.size()); }
};

// What the library has last complained of.
std::string complaint() {
  const unsigned long code = ERR_peek_last_error();
  const char *const reason = ERR_reason_error_string(code);
  return reason != nullptr ? reason : "not accepted";
}

// Nothing but an ordinary file: no pipe holds anybody up. Returns what is wrong with it.
std::string read_whole(const fs::path &file, std::string &text) {
  const descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat found = {};
  if (opened.get() < 0 || ::fstat(opened.get(), &found) != 0) return std::strerror(errno);
  if (!S_ISREG(found.st_mode)) return "this is no file";
  text.resize(largest_file + 1);
  std::size_t length = 0;
  for (;;) {
    const ssize_t more = ::read(opened.get(), text.data() + length, text.size() - length);
    if (more < 0) return std::strerror(errno);
    length += static_cast<std::size_t>(more);
    if (more == 0 || length == text.size()) break;
  }
  if (length > largest_file) return "the file is longer than 1 MiB";
  text.resize(length);
  return {};
}

// Nobody is asked for a passphrase.
int no_passphrase(char *, int, int, void *asked) {
  *static_cast<bool *>(asked) = true;
  return -1;
}

certificate_pointer next_certificate(BIO *from) {
  bool asked = false;
  return {PEM_read_bio_X509(from, nullptr, no_passphrase, &asked), X509_free};
}

// Whether reading ended where the text does, and not over something that is none.
bool came_to_the_end() {
  const bool ended = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  ERR_clear_error();
  return ended;
}

std::string day_of(const ASN1_TIME *moment) {
  std::tm parts = {};
  if (moment == nullptr || ASN1_TIME_to_tm(moment, &parts) != 1) return "an unknown day";
  return fmt::format("{:04}-{:02}-{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

std::string digest_of(const std::string &text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), bytes.data(), &size, EVP_sha256(), nullptr) != 1) {
    return {};
  }
  return {reinterpret_cast<const char *>(bytes.data()), size};
}

}  // namespace

// Takes one file after the other in; what is wrong with the first that is not right stays.
struct tls_context::builder {
  explicit builder(const SSL_METHOD *method)
      : context(SSL_CTX_new(method), [](SSL_CTX *gone) { SSL_CTX_free(gone); }) {
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) {
      wrong = "TLS cannot be had: " + complaint();
    }
  }

  void refuse(const fs::path &file, const std::string &why) {
    if (wrong.empty()) wrong = file.native() + ": " + why;
  }

  // The file's text as the library reads it; null when it is wrong or something else has been.
  bio_pointer open(const fs::path &file, wiped_text &content) {
    if (wrong.empty()) {
      if (const std::string why = read_whole(file, content.text); !why.empty()) refuse(file, why);
    }
    if (!wrong.empty()) return {nullptr, BIO_free};
    ERR_clear_error();
    all.text += digest_of(content.text);
    return {BIO_new_mem_buf(content.text.data(), static_cast<int>(content.text.size())), BIO_free};
  }

  void use_certificate(const fs::path &file) {
    wiped_text content;
    const bio_pointer from = open(file, content);
    if (!from) return;
    const certificate_pointer own = next_certificate(from.get());
    if (!own) return refuse(file, "there is no certificate in PEM in it");
    if (SSL_CTX_use_certificate(context.get(), own.get()) != 1) return refuse(file, complaint());
    for (;;) {
      certificate_pointer above = next_certificate(from.get());
      if (!above) break;
      if (SSL_CTX_add0_chain_cert(context.get(), above.get()) != 1) {
        return refuse(file, complaint());
      }
      static_cast<void>(above.release());
    }
    if (!came_to_the_end()) refuse(file, "a certificate behind the first cannot be read");
  }

  void use_key(const fs::path &file) {
    wiped_text content;
    const bio_pointer from = open(file, content);
    if (!from) return;
    bool asked = false;
    const key_pointer key(PEM_read_bio_PrivateKey(from.get(), nullptr, no_passphrase, &asked),
                          EVP_PKEY_free);
    if (asked) return refuse(file, "the key has a passphrase, which nobody can be asked for here");
    if (!key) return refuse(file, "there is no private key in PEM in it");
    if (SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1) {
      refuse(file, "the key is not the certificate's: " + complaint());
    }
  }

  void trust(const fs::path &file) {
    wiped_text content;
    const bio_pointer from = open(file, content);
    if (!from) return;
    unsigned count = 0;
    for (;; ++count) {
      const certificate_pointer one = next_certificate(from.get());
      if (!one) break;
      if (X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), one.get()) != 1 ||
          SSL_CTX_add_client_CA(context.get(), one.get()) != 1) {
        return refuse(file, complaint());
      }
    }
    if (count == 0) return refuse(file, "there is no certificate in PEM in it");
    if (!came_to_the_end()) refuse(file, "a certificate behind the first cannot be read");
  }

  std::shared_ptr<const tls_context> finish(std::string &error) {
    error = wrong;
    ERR_clear_error();
    if (!wrong.empty()) return nullptr;
    const std::shared_ptr<tls_context> made(new tls_context(context));
    const X509 *own = SSL_CTX_get0_certificate(context.get());
    if (own != nullptr) made->last_day_ = day_of(X509_get0_notAfter(own));
    made->digest_ = all.text;
    return made;
  }

  std::shared_ptr<SSL_CTX> context;
  wiped_text all;
  std::string wrong;
};

std::shared_ptr<const tls_context> tls_context::of_server(const tls_files &files,
                                                          std::string &error) {
  builder made(TLS_server_method());
  if (made.wrong.empty()) {
    // Each connection shows its certificate anew: none is resumed from before a reload.
    SSL_CTX_set_options(made.context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_TICKET |
                                                SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_session_cache_mode(made.context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(made.context.get(), 0);
  }
  made.use_certificate(files.certificate);
  made.use_key(files.key);
  if (!files.ca.empty()) {
    made.trust(files.ca);
    if (made.wrong.empty()) {
      SSL_CTX_set_verify(made.context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                         nullptr);
    }
  }
  return made.finish(error);
}

std::shared_ptr<const tls_context> tls_context::of_client(const tls_files &files,
                                                          std::string &error) {
  builder made(TLS_client_method());
  if (made.wrong.empty()) SSL_CTX_set_verify(made.context.get(), SSL_VERIFY_PEER, nullptr);
  if (!files.certificate.empty()) {
    made.use_certificate(files.certificate);
    made.use_key(files.key);
  }
  if (!files.ca.empty()) {
    made.trust(files.ca);
  } else if (made.wrong.empty()) {
    SSL_CTX_set_default_verify_paths(made.context.get());
  }
  return made.finish(error);
}

bool tls_context::is_for(const std::string &host) const {
  X509 *const own = SSL_CTX_get0_certificate(context_.get());
  return own != nullptr && (X509_check_host(own, host.data(), host.size(), 0, nullptr) == 1 ||
                            X509_check_ip_asc(own, host.c_str(), 0) == 1);
}

bool tls_context::is_over() const {
  const X509 *const own = SSL_CTX_get0_certificate(context_.get());
  return own != nullptr && X509_cmp_current_time(X509_get0_notAfter(own)) < 0;
}

}  // namespace lum_client
