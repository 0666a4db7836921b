#pragma once

#include <ctime>
#include <memory>
#include <string>

struct evp_pkey_st;
struct x509_st;

namespace tks::test {

/// What an https server shows: its certificate and the key of it.
struct ServerIdentity {
  std::shared_ptr<x509_st> certificate;
  std::shared_ptr<evp_pkey_st> key;
};

/// A certificate authority that only the test knows.
class TestAuthority {
 public:
  explicit TestAuthority(const std::string& name = "Test Authority");

  /// An identity for a server. `name`: as in a certificate's alternative names, for example "IP:127.0.0.1".
  ServerIdentity issue(const std::string& name, std::time_t validFrom, std::time_t validTo) const;
  /// The same, valid today.
  ServerIdentity issue(const std::string& name) const;
  /// An identity that no authority vouches for.
  static ServerIdentity selfSigned(const std::string& name);

  /// The authority's own certificate as a PEM text.
  std::string certificate() const;

 private:
  ServerIdentity authority_;
};

}  // namespace tks::test
