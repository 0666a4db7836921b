#include "codesign/container/sha256_lockstep.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "codesign/container/digest.h"
#include "tests/support/ScopedValue.h"

// Hashes of several messages side by side are those that OpenSSL gives one after another.

namespace {

using tks::codesign::Bytes;
using tks::codesign::Digest;
using tks::codesign::Hasher;
using tks::codesign::HashType;
using tks::codesign::sha256Lockstep;
using tks::codesign::Sha256Lockstep;

class SideBySide : public ::testing::TestWithParam<bool> {
 protected:
  /// Whether the processor's instructions are used, if it has them.
  tks::test::ScopedValue<Sha256Lockstep> inForce{sha256Lockstep(), GetParam() ? sha256Lockstep() : nullptr};
  std::mt19937 random{3};

  std::vector<std::uint8_t> randomBytes(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
  }

  void expectAsOneByOne(const std::vector<std::vector<std::uint8_t>>& contents) {
    const std::vector<Bytes> messages(contents.begin(), contents.end());
    for (const HashType type : {HashType::sha1, HashType::sha256, HashType::sha256Truncated, HashType::sha384}) {
      Hasher hasher(type);
      std::vector<Digest> digests(messages.size());
      tks::codesign::hashEach(hasher, messages, digests);
      for (std::size_t i = 0; i < messages.size(); ++i) {
        ASSERT_EQ(digests[i].size, tks::codesign::hashSize(type));
        ASSERT_TRUE(digests[i].matches(hasher.hash(messages[i]).bytes())) << messages[i].size() << " bytes";
      }
    }
  }
};

TEST_P(SideBySide, EachLengthUpToSomeBlocks) {
  std::vector<std::vector<std::uint8_t>> contents;
  for (std::size_t size = 0; size < 300; ++size) contents.push_back(randomBytes(size));
  expectAsOneByOne(contents);
}

TEST_P(SideBySide, MessagesOfAnyLengths) {
  for (int i = 0; i < 60; ++i) {
    std::vector<std::vector<std::uint8_t>> contents;
    for (std::size_t count = random() % 8; count > 0; --count) {
      contents.push_back(randomBytes(random() % (random() % 2 == 0 ? 130 : 9000)));
    }
    expectAsOneByOne(contents);
  }
}

TEST_P(SideBySide, ManyPagesOfOneLengthAndAShorterOne) {
  std::vector<std::vector<std::uint8_t>> contents;
  for (int i = 0; i < 131; ++i) contents.push_back(randomBytes(4096));
  contents.push_back(randomBytes(1000));
  expectAsOneByOne(contents);
}

INSTANTIATE_TEST_SUITE_P(Instructions, SideBySide, ::testing::Values(true, false),
                         [](const auto& use) { return use.param ? "Used" : "SwitchedOff"; });

}  // namespace
