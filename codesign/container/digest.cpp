#include "codesign/container/digest.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "codesign/container/library_context.h"
#include "codesign/container/sha256_lockstep.h"
#include "codesign/container/status.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

void require(int succeeded) {
  if (succeeded != 1) fail(status::kInternalError);
}

}  // namespace

bool Digest::matches(Bytes expected) const { return std::ranges::equal(bytes(), expected); }

Cryptography& Cryptography::shared() {
  static auto& cryptography = *new Cryptography;
  return cryptography;
}

Cryptography::Cryptography() {
  const ErrorQueueGuard guard;
  context_ = makeLibraryContext();
  constexpr const char* kNames[] = {nullptr, "SHA1", "SHA2-256", "SHA2-256", "SHA2-384"};
  for (std::size_t i = 1; i < functions_.size(); ++i) functions_[i] = ::EVP_MD_fetch(context_, kNames[i], nullptr);
}

ErrorQueueGuard::ErrorQueueGuard() { ::ERR_set_mark(); }
ErrorQueueGuard::~ErrorQueueGuard() { ::ERR_pop_to_mark(); }

Hasher::Hasher(HashType type) : type_(type), context_(::EVP_MD_CTX_new()) {
  if (context_ == nullptr || Cryptography::shared().function(type) == nullptr) {
    ::EVP_MD_CTX_free(context_);
    fail(status::kNotEnoughMemory);
  }
}

Hasher::Hasher(Hasher&& other) noexcept : type_(other.type_), context_(std::exchange(other.context_, nullptr)) {}

Hasher::~Hasher() { ::EVP_MD_CTX_free(context_); }

void Hasher::start() { require(::EVP_DigestInit_ex2(context_, Cryptography::shared().function(type_), nullptr)); }

void Hasher::update(Bytes bytes) { require(::EVP_DigestUpdate(context_, bytes.data(), bytes.size())); }

Digest Hasher::finish() {
  Digest digest = finishInFull();
  digest.size = std::min(digest.size, hashSize(type_));
  return digest;
}

Digest Hasher::finishInFull() {
  Digest digest;
  unsigned size = 0;
  require(::EVP_DigestFinal_ex(context_, digest.storage.data(), &size));
  digest.size = size;
  return digest;
}

Digest Hasher::hash(Bytes bytes) {
  start();
  update(bytes);
  return finish();
}

void hashEach(Hasher& hasher, std::span<const Bytes> messages, std::span<Digest> digests) {
  const Sha256Blocks blocks = isSha256(hasher.type()) && messages.size() > 1 ? sha256Blocks() : nullptr;
  if (blocks == nullptr) {
    for (std::size_t i = 0; i < messages.size(); ++i) digests[i] = hasher.hash(messages[i]);
    return;
  }
  constexpr std::size_t kTogether = 64;
  for (std::size_t first = 0; first < messages.size(); first += kTogether) {
    const std::size_t count = std::min(kTogether, messages.size() - first);
    std::array<Sha256Digest, kTogether> whole;
    hashSideBySide(blocks, messages.subspan(first, count), std::span(whole).first(count));
    for (std::size_t i = 0; i < count; ++i) {
      std::ranges::copy(whole[i], digests[first + i].storage.begin());
      digests[first + i].size = hashSize(hasher.type());
    }
  }
}

Digest hashOf(const ByteSource& source, HashType type, bool inFull) {
  Hasher hasher(type);
  hasher.start();
  std::vector<std::uint8_t> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(source.size(), kPiece)));
  for (std::uint64_t offset = 0; offset < source.size();) {
    const std::size_t count = source.read(offset, buffer);
    if (count == 0) break;
    hasher.update(Bytes(buffer).first(count));
    offset += count;
  }
  return inFull ? hasher.finishInFull() : hasher.finish();
}

}  // namespace tks::codesign
