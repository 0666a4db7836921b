#pragma once

#include <openssl/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "codesign/container/byte_source.h"
#include "codesign/container/hash_type.h"

namespace tks::codesign {

/// A finished hash.
struct Digest {
  std::array<std::uint8_t, 64> storage{};  ///< room for the longest
  std::size_t size = 0;                    ///< bytes of it that count

  Bytes bytes() const { return Bytes(storage).first(size); }
  bool matches(Bytes expected) const;
};

/// Cryptography of our own, apart from the host's: whatever the host or the system's configuration do to OpenSSL's
/// default library context, signatures that were good stay good.
class Cryptography {
 public:
  /// Made on first use; never destroyed.
  static Cryptography& shared();

  OSSL_LIB_CTX* context() const { return context_; }
  /// The function of a hash type, in full length for truncated ones.
  const EVP_MD* function(HashType type) const { return functions_[static_cast<std::size_t>(type)]; }

 private:
  Cryptography();

  OSSL_LIB_CTX* context_ = nullptr;
  std::array<EVP_MD*, 5> functions_{};
};

/// Keeps OpenSSL's queue of errors, which is the thread's and so also the host's, as it was.
class ErrorQueueGuard {
 public:
  ErrorQueueGuard();
  ~ErrorQueueGuard();
  ErrorQueueGuard(const ErrorQueueGuard&) = delete;
  ErrorQueueGuard& operator=(const ErrorQueueGuard&) = delete;
};

/// Hashes; may be used again after finish().
class Hasher {
 public:
  explicit Hasher(HashType type);
  Hasher(Hasher&& other) noexcept;
  Hasher& operator=(Hasher&&) = delete;
  ~Hasher();

  HashType type() const { return type_; }
  void start();
  void update(Bytes bytes);
  Digest finish();
  /// The same with the full length of a truncated type.
  Digest finishInFull();

  /// start, update, finish.
  Digest hash(Bytes bytes);

 private:
  HashType type_;
  EVP_MD_CTX* context_ = nullptr;
};

/// Hashes several messages, each from its beginning to its end; `digests` has a place for each. SHA-256 goes side by
/// side where the processor has instructions for it, everything else one after another with `hasher`.
void hashEach(Hasher& hasher, std::span<const Bytes> messages, std::span<Digest> digests);

/// Hash of a whole source, read piece by piece.
Digest hashOf(const ByteSource& source, HashType type, bool inFull = false);

}  // namespace tks::codesign
