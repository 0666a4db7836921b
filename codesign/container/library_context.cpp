#include "codesign/container/library_context.h"

#include <openssl/core.h>
#include <openssl/core_dispatch.h>
#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <string_view>
#include <vector>

namespace tks::codesign {
namespace {

constexpr const char* kDefaultProvider = "default";
constexpr const char* kOwnProvider = "tksinterface";
/// What decoders of the keys of certificates say of what they read.
constexpr std::string_view kKeysOfCertificates = "structure=SubjectPublicKeyInfo";

/// The default provider, in a context of its own, and the part of its decoders that is passed on. Never destroyed.
struct Origin {
  OSSL_PROVIDER* provider = nullptr;
  std::vector<OSSL_ALGORITHM> decoders;

  Origin() {
    OSSL_LIB_CTX* const context = ::OSSL_LIB_CTX_new();
    if (context == nullptr) return;
    provider = ::OSSL_PROVIDER_load(context, kDefaultProvider);
    if (provider != nullptr) collectDecoders();
    if (!decoders.empty()) return;
    if (provider != nullptr) ::OSSL_PROVIDER_unload(provider);
    provider = nullptr;
    ::OSSL_LIB_CTX_free(context);
  }

  void collectDecoders() {
    int isTransient = 0;
    const OSSL_ALGORITHM* next = ::OSSL_PROVIDER_query_operation(provider, OSSL_OP_DECODER, &isTransient);
    for (; isTransient == 0 && next != nullptr && next->algorithm_names != nullptr; ++next) {
      if (std::string_view(next->property_definition).find(kKeysOfCertificates) != std::string_view::npos) {
        decoders.push_back(*next);
      }
    }
    if (!decoders.empty()) decoders.push_back({});  // the end
  }
};

const Origin& origin() {
  static const Origin& made = *new Origin;
  return made;
}

// The provider that stands before it.

const OSSL_ALGORITHM* query(void*, int operation, int* isTransient) {
  if (operation != OSSL_OP_DECODER) {
    return ::OSSL_PROVIDER_query_operation(origin().provider, operation, isTransient);
  }
  *isTransient = 0;
  return origin().decoders.data();
}

int begin(const OSSL_CORE_HANDLE*, const OSSL_DISPATCH*, const OSSL_DISPATCH** functions, void** context) {
  static const OSSL_DISPATCH kFunctions[] = {{OSSL_FUNC_PROVIDER_QUERY_OPERATION, reinterpret_cast<void (*)()>(query)},
                                             {0, nullptr}};
  // What the functions of the default provider expect to be called with.
  *context = ::OSSL_PROVIDER_get0_provider_ctx(origin().provider);
  *functions = kFunctions;
  return 1;
}

}  // namespace

OSSL_LIB_CTX* makeLibraryContext() {
  OSSL_LIB_CTX* const context = ::OSSL_LIB_CTX_new();
  if (context == nullptr || origin().provider == nullptr) return context;
  if (::OSSL_PROVIDER_add_builtin(context, kOwnProvider, begin) == 1) ::OSSL_PROVIDER_load(context, kOwnProvider);
  return context;
}

}  // namespace tks::codesign
