#include "codesign/container/sha256_lockstep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "codesign/container/digest.h"
#include "tests/support/ScopedValue.h"

// Hashes of several messages side by side are those that OpenSSL gives one after another.

namespace {

using tks::codesign::Bytes;
using tks::codesign::Digest;
using tks::codesign::Hasher;
using tks::codesign::HashType;
using tks::codesign::Sha256Blocks;
using tks::codesign::sha256Blocks;
using tks::codesign::sha256BlocksHere;
using tks::codesign::Sha256Digest;
using tks::codesign::Sha256Message;

constexpr std::size_t kSwitchedOff = 2;

/// With the fastest instructions of this processor, with the next ones, and with none.
class SideBySide : public ::testing::TestWithParam<std::size_t> {
 protected:
  static Sha256Blocks function() {
    return GetParam() < sha256BlocksHere().size() ? sha256BlocksHere()[GetParam()] : nullptr;
  }

  void SetUp() override {
    if (function() == nullptr && GetParam() != kSwitchedOff) GTEST_SKIP() << "this processor has no such instructions";
  }

  tks::test::ScopedValue<Sha256Blocks> inForce{sha256Blocks(), function()};
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
    for (std::size_t count = random() % 40; count > 0; --count) {
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

/// A message that comes in pieces of whole blocks, and never touches what it gave before.
class InPieces final : public Sha256Message {
 public:
  InPieces(Bytes content, std::vector<std::size_t> blocks) : content_(content), blocks_(std::move(blocks)) {}

  Bytes next() override {
    const std::size_t wanted = blocks_.empty() ? content_.size() : blocks_.back() * 64;
    if (!blocks_.empty()) blocks_.pop_back();
    const Bytes piece = content_.first(std::min(wanted, content_.size()));
    content_ = content_.subspan(piece.size());
    piece_.assign(piece.begin(), piece.end());
    return piece_;
  }
  void finish(const Sha256Digest& digest) override { found = digest; }

  std::optional<Sha256Digest> found;

 private:
  Bytes content_;
  std::vector<std::size_t> blocks_;
  std::vector<std::uint8_t> piece_;
};

TEST_P(SideBySide, MessagesThatComeInPiecesAndOneAfterAnother) {
  if (function() == nullptr) return;
  for (int round = 0; round < 40; ++round) {
    std::vector<std::vector<std::uint8_t>> contents;
    std::deque<InPieces> messages;
    for (std::size_t count = random() % 50; count > 0; --count) {
      contents.push_back(randomBytes(random() % 3 == 0 ? random() % 5 * 64 : random() % 5000));
      std::vector<std::size_t> pieces;
      for (std::size_t piece = random() % 6; piece > 0; --piece) pieces.push_back(random() % 9 + 1);
      messages.emplace_back(contents.back(), std::move(pieces));
    }
    std::size_t begun = 0;
    tks::codesign::hashSideBySide(function(), [&]() -> Sha256Message* {
      // Now and then there is none for a moment, while others are under way.
      if (begun == messages.size() || (begun % 7 != 0 && random() % 4 == 0)) return nullptr;
      return &messages[begun++];
    });
    Hasher hasher(HashType::sha256);
    for (std::size_t i = 0; i < begun; ++i) {
      ASSERT_TRUE(messages[i].found) << i;
      ASSERT_TRUE(hasher.hash(contents[i]).matches(*messages[i].found)) << contents[i].size() << " bytes";
    }
  }
}

TEST_P(SideBySide, AnyNumberOfMessagesOfOneLength) {
  for (std::size_t count = 0; count < 40; ++count) {
    std::vector<std::vector<std::uint8_t>> contents;
    for (std::size_t i = 0; i < count; ++i) contents.push_back(randomBytes(640));
    expectAsOneByOne(contents);
  }
}

INSTANTIATE_TEST_SUITE_P(Instructions, SideBySide, ::testing::Values(0u, 1u, kSwitchedOff), [](const auto& level) {
  return level.param == kSwitchedOff ? "SwitchedOff" : level.param == 0 ? "Fastest" : "Next";
});

}  // namespace
