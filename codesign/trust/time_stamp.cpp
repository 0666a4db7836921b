#include "codesign/trust/time_stamp.h"

#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <memory>
#include <optional>

#include "codesign/container/digest.h"
#include "codesign/container/status.h"
#include "codesign/trust/signed_message.h"

namespace tks::codesign {
namespace {

constexpr const char* kSystemRoots = "/etc/ssl/certs";

struct TokenInfoDeleter {
  void operator()(TS_TST_INFO* info) const { ::TS_TST_INFO_free(info); }
};
using TokenInfo = std::unique_ptr<TS_TST_INFO, TokenInfoDeleter>;

struct StoreDeleter {
  void operator()(X509_STORE* store) const { ::X509_STORE_free(store); }
  void operator()(X509_STORE_CTX* context) const { ::X509_STORE_CTX_free(context); }
};

[[noreturn]] void reject() { fail(status::kSignatureFailed); }

/// What the token says, once its signature holds.
TokenInfo tokenInfo(SignedMessage& message) {
  if (::OBJ_obj2nid(::CMS_get0_eContentType(message.message())) != NID_id_smime_ct_TSTInfo) reject();
  const std::optional<TKSData> content = message.verifyContentInside();
  if (!content) reject();
  const unsigned char* at = content->data();
  TokenInfo info(::d2i_TS_TST_INFO(nullptr, &at, static_cast<long>(content->size())));
  if (info == nullptr) reject();
  return info;
}

/// The token stamps a hash of the signature; SHA-256 and SHA-1 are the functions that are taken.
bool stamps(TS_TST_INFO* info, Bytes signature) {
  TS_MSG_IMPRINT* imprint = ::TS_TST_INFO_get_msg_imprint(info);
  const ASN1_OBJECT* function = nullptr;
  ::X509_ALGOR_get0(&function, nullptr, nullptr, ::TS_MSG_IMPRINT_get_algo(imprint));
  const int number = ::OBJ_obj2nid(function);
  if (number != NID_sha256 && number != NID_sha1) return false;
  const ASN1_OCTET_STRING* hash = ::TS_MSG_IMPRINT_get_msg(imprint);
  return Hasher(number == NID_sha256 ? HashType::sha256 : HashType::sha1)
      .hash(signature)
      .matches({::ASN1_STRING_get0_data(hash), static_cast<std::size_t>(::ASN1_STRING_length(hash))});
}

/// Whether this machine trusts a self-signed certificate.
bool isTrustedHere(X509* root) {
  const std::unique_ptr<X509_STORE, StoreDeleter> store(::X509_STORE_new());
  X509_LOOKUP* lookup = store == nullptr ? nullptr : ::X509_STORE_add_lookup(store.get(), ::X509_LOOKUP_hash_dir());
  if (lookup == nullptr || ::X509_LOOKUP_add_dir(lookup, kSystemRoots, X509_FILETYPE_PEM) != 1) return false;
  const std::unique_ptr<X509_STORE_CTX, StoreDeleter> context(
      ::X509_STORE_CTX_new_ex(Cryptography::shared().context(), nullptr));
  if (context == nullptr || ::X509_STORE_CTX_init(context.get(), store.get(), root, nullptr) != 1) return false;
  ::X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME);
  return ::X509_verify_cert(context.get()) == 1;
}

bool isAnchor(X509* root, const Chain& codeChain, const AppleRoots& roots) {
  if (roots.contains(root)) return true;
  if (isSelfSigned(codeChain.back()) && ::X509_cmp(root, codeChain.back()) == 0) return true;
  return isTrustedHere(root);
}

}  // namespace

TimeStamp verifyTimeStamp(Bytes token, Bytes signature, const Chain& codeChain, const AppleRoots& roots) {
  std::optional<SignedMessage> message = SignedMessage::decode(token);
  if (!message) reject();
  const TokenInfo info = tokenInfo(*message);
  if (!stamps(info.get(), signature)) reject();

  TimeStamp stamp;
  std::tm parts{};
  if (::ASN1_TIME_to_tm(::TS_TST_INFO_get_time(info.get()), &parts) != 1) reject();
  stamp.moment = ::timegm(&parts);

  // A token may leave out the root that it shares with the code.
  std::vector<X509*> carried = message->carried();
  carried.insert(carried.end(), codeChain.begin(), codeChain.end());
  const Chain chain = buildChain(message->signerCertificate(), carried);
  if (!hasUsage(chain.front(), NID_time_stamp) || !isValidAt(chain.front(), stamp.moment) ||
      verifyChain(chain) != status::kGood || !isAnchor(chain.back(), codeChain, roots)) {
    reject();
  }
  stamp.isFromApple = roots.contains(chain.back());
  return stamp;
}

}  // namespace tks::codesign
