#include <gtest/gtest.h>
#include <openssl/asn1t.h>
#include <openssl/cms.h>
#include <openssl/x509.h>

#include "codesign/container/status.h"
#include "codesign/signing/message.h"
#include "codesign/trust/ber_structure.h"
#include "codesign/trust/cms_signature.h"
#include "foundation/values/Hexadecimal.h"
#include "tests/codesign/Fixtures.h"

// The message that signs the code directories.

namespace {

using namespace tks::test;
using tks::codesign::AppleRoots;
using tks::codesign::ByteSource;
using tks::codesign::CodeDirectory;
using tks::codesign::DirectorySet;
using tks::codesign::HashType;
using tks::signing::MessageOptions;
using tks::signing::SignedDirectory;

SignedDirectory directoryOf(HashType type, std::uint8_t filling = 1) {
  tks::signing::DirectoryPlan plan;
  plan.identifier = "message";
  plan.hashType = type;
  return {type, tks::signing::makeDirectory(plan, TKSData(9000, filling))};
}

/// The status of a message for what a file holds; the first directory is the primary one.
std::int32_t statusOfMessage(const TKSData& message, const std::vector<SignedDirectory>& found) {
  try {
    DirectorySet set;
    for (const SignedDirectory& directory : found) {
      set.add(CodeDirectory(ByteSource(directory.blob)), &directory == &found.front());
    }
    set.choose();
    tks::codesign::verifySignature(message, set, AppleRoots::builtIn());
    return 0;
  } catch (const tks::codesign::Failure& failure) {
    return failure.status;
  }
}

TKSData signedOver(const std::vector<SignedDirectory>& directories, const MessageOptions& options = {}) {
  return tks::signing::signDirectories(identity(), directories, options);
}

const SignedDirectory& primary() {
  static const SignedDirectory made = directoryOf(HashType::sha1);
  return made;
}
const SignedDirectory& alternate() {
  static const SignedDirectory made = directoryOf(HashType::sha256);
  return made;
}

TEST(Messages, AreOverThePrimaryDirectory) {
  EXPECT_EQ(statusOfMessage(signedOver({primary(), alternate()}), {primary(), alternate()}), 0);
  EXPECT_EQ(statusOfMessage(signedOver({alternate()}), {primary()}), -67061);
}

TEST(Messages, WithEitherListOfHashesNameEveryDirectory) {
  const MessageOptions lists[] = {{.hashList = true, .hashSet = false}, {.hashList = false, .hashSet = true}};
  for (const MessageOptions& options : lists) {
    const TKSData message = signedOver({primary(), alternate()}, options);
    EXPECT_EQ(statusOfMessage(message, {primary(), alternate()}), 0);
    EXPECT_EQ(statusOfMessage(message, {primary()}), -67061) << "one taken away";
    EXPECT_EQ(statusOfMessage(message, {primary(), directoryOf(HashType::sha256, 2)}), -67061) << "one replaced";
    EXPECT_EQ(statusOfMessage(message, {primary(), alternate(), directoryOf(HashType::sha384)}), -67061) << "one added";
    EXPECT_EQ(statusOfMessage(signedOver({primary()}, options), {primary(), alternate()}), -67061);
  }
  // Old ones have neither list: they are a signature over one directory, and another could be anybody's.
  const TKSData old = signedOver({primary()}, {.hashList = false, .hashSet = false});
  EXPECT_EQ(statusOfMessage(old, {primary()}), 0);
  EXPECT_EQ(statusOfMessage(old, {primary(), alternate()}), -67061);
}

TEST(Messages, MayBeEncodedWithIndefiniteLengths) {
  const TKSData message = signedOver({alternate()}, {.timeStamp = std::time(nullptr)});
  const unsigned char* at = message.data();
  CMS_ContentInfo* parsed = ::d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(message.size()));
  ASSERT_NE(parsed, nullptr);
  unsigned char* encoded = nullptr;
  const int size =
      ::ASN1_item_ndef_i2d(reinterpret_cast<ASN1_VALUE*>(parsed), &encoded, ASN1_ITEM_rptr(CMS_ContentInfo));
  ::CMS_ContentInfo_free(parsed);
  ASSERT_GT(size, 0);
  TKSData indefinite(encoded, encoded + size);
  ::OPENSSL_free(encoded);
  ASSERT_EQ(indefinite[0], 0x30);
  ASSERT_EQ(indefinite[1], 0x80);
  EXPECT_EQ(statusOfMessage(indefinite, {alternate()}), 0);
  EXPECT_EQ(statusOfMessage(indefinite, {primary()}), -67061);
  indefinite.pop_back();
  EXPECT_EQ(statusOfMessage(indefinite, {alternate()}), -25257);
}

TEST(Messages, ThatCarryContentOfTheirOwnAreRefused) {
  const TKSData message = signedOver({alternate()});
  const unsigned char* at = message.data();
  CMS_ContentInfo* parsed = ::d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(message.size()));
  ASSERT_NE(parsed, nullptr);
  ASN1_OCTET_STRING** inside = ::CMS_get0_content(parsed);
  ASSERT_TRUE(inside != nullptr && *inside == nullptr);
  *inside = ::ASN1_OCTET_STRING_new();
  const TKSData& own = alternate().blob;
  ::ASN1_OCTET_STRING_set(*inside, own.data(), static_cast<int>(own.size()));
  unsigned char* encoded = nullptr;
  const int size = ::i2d_CMS_ContentInfo(parsed, &encoded);
  ::CMS_ContentInfo_free(parsed);
  ASSERT_GT(size, 0);
  const TKSData carrying(encoded, encoded + size);
  ::OPENSSL_free(encoded);
  EXPECT_NE(statusOfMessage(carrying, {alternate()}), 0);
}

TEST(Messages, SayWhatTheyAreASignatureOver) {
  TKSData message = signedOver({alternate()});
  // The first mention of "data" (1.2.840.113549.1.7.1) says so, the second is among what is signed.
  constexpr std::uint8_t kData[] = {0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x07, 0x01};
  const auto found = std::search(message.begin(), message.end(), std::begin(kData), std::end(kData));
  ASSERT_NE(found, message.end());
  for (std::ptrdiff_t i = 0; i < std::ssize(kData); ++i) {
    found[i] ^= 1;
    EXPECT_NE(statusOfMessage(message, {alternate()}), 0) << i;
    found[i] ^= 1;
  }
  EXPECT_EQ(statusOfMessage(message, {alternate()}), 0);
}

TEST(Messages, AreSignedByTheAlgorithmThatTheyName) {
  TKSData message = signedOver({alternate()});
  ASSERT_EQ(statusOfMessage(message, {alternate()}), 0);
  // ECDSA with SHA-256 (1.2.840.10045.4.3.2); the last mention is that of the signer.
  constexpr std::uint8_t kAlgorithm[] = {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x04, 0x03, 0x02};
  const auto found = std::find_end(message.begin(), message.end(), std::begin(kAlgorithm), std::end(kAlgorithm));
  ASSERT_NE(found, message.end());
  found[7] = 0x03;  // with SHA-384
  EXPECT_NE(statusOfMessage(message, {alternate()}), 0);
}

TEST(Messages, ThatDoNotDecodeHaveAStatusOfTheirOwn) {
  EXPECT_EQ(statusOfMessage({}, {alternate()}), -25257);
  EXPECT_EQ(statusOfMessage({0x30, 0x03, 0x02, 0x01, 0x01}, {alternate()}), -25257);
  const TKSData message = signedOver({alternate()});
  for (std::size_t size = 0; size < message.size(); size += 7) {
    EXPECT_EQ(statusOfMessage({message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size)}, {alternate()}),
              -25257)
        << size;
  }
}

TEST(Encodings, NestAsTheirLengthsSay) {
  const TKSData sound[] = {{0x30, 0x00},
                           {0x30, 0x03, 0x02, 0x01, 0x01},
                           {0x30, 0x80, 0x00, 0x00},
                           {0x30, 0x80, 0x02, 0x01, 0x01, 0x00, 0x00},
                           {0x02, 0x01, 0x01, 0x77}};
  for (const TKSData& encoded : sound) EXPECT_TRUE(tks::codesign::isWellNested(encoded)) << tks::hexadecimal(encoded);
  const TKSData unsound[] = {{},
                             {0x30},
                             {0x30, 0x01},
                             {0x30, 0x80},
                             {0x30, 0x80, 0x02, 0x01, 0x01},
                             {0x30, 0x03, 0x02, 0x02, 0x01},
                             {0x30, 0x03, 0x02, 0x02, 0x01, 0x01},
                             {0x00, 0x00},
                             {0x02, 0x80, 0x00, 0x00}};
  for (const TKSData& encoded : unsound)
    EXPECT_FALSE(tks::codesign::isWellNested(encoded)) << tks::hexadecimal(encoded);
}

TEST(Certificates, AreValidUpToTheirLastSecond) {
  tks::signing::IdentityPlan plan;
  plan.rsa = false;
  plan.notBefore = 1500000000;
  plan.notAfter = 1600000000;
  const tks::signing::Identity identity = tks::signing::makeIdentity(plan);
  const auto valid = [&](std::time_t moment) { return tks::codesign::isValidAt(identity.leaf(), moment); };
  EXPECT_FALSE(valid(1499999999));
  EXPECT_TRUE(valid(1500000000));
  EXPECT_TRUE(valid(1600000000));
  EXPECT_FALSE(valid(1600000001));
}

TEST(Certificates, AreNeverValidWithoutDates) {
  for (auto* const date : {&::X509_getm_notBefore, &::X509_getm_notAfter}) {
    tks::signing::IdentityPlan plan;
    plan.rsa = false;
    const tks::signing::Identity identity = tks::signing::makeIdentity(plan);
    ASSERT_TRUE(tks::codesign::isValidAt(identity.leaf(), std::time(nullptr)));
    ASSERT_EQ(::ASN1_STRING_set(date(identity.leaf()), "next summer", -1), 1);
    EXPECT_FALSE(tks::codesign::isValidAt(identity.leaf(), std::time(nullptr)));
  }
}

}  // namespace
