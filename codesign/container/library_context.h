#pragma once

#include <openssl/types.h>

namespace tks::codesign {

/// A library context of OpenSSL with everything of its default provider, but of its decoders only those that read the
/// keys of certificates: OpenSSL 3.0 compares all decoders there are with each other for each key that it reads, which
/// takes longer than verifying the signature. Where it cannot be made so, a context with all of them, which is slower;
/// null without memory. It is for the rest of the process: its provider stays loaded.
OSSL_LIB_CTX* makeLibraryContext();

}  // namespace tks::codesign
