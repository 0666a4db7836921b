// JSON against another implementation: random documents both ways, and texts with random mistakes.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "foundation/values/JsonWriter.h"
#include "platform/platform.h"
#include "tests/support/PrintValue.h"

namespace {

using Peer = nlohmann::json;

class Documents {
 public:
  explicit Documents(unsigned seed) : random_(seed) {}

  Peer outermost() { return below(2) == 0 ? array(4) : object(4); }
  std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_); }

 private:
  Peer array(int depth) {
    Peer values = Peer::array();
    for (std::size_t i = below(6); i > 0; --i) values.push_back(value(depth - 1));
    return values;
  }
  Peer object(int depth) {
    Peer members = Peer::object();
    for (std::size_t i = below(6); i > 0; --i) members[text()] = value(depth - 1);
    return members;
  }
  Peer value(int depth) {
    switch (below(depth > 0 ? 8 : 6)) {
      case 0:
        return nullptr;
      case 1:
        return below(2) == 0;
      case 2:
        return static_cast<std::int64_t>(bits() >> below(64)) * (below(2) == 0 ? 1 : -1);
      case 3:
        return real();
      case 4:
      case 5:
        return text();
      case 6:
        return array(depth);
      default:
        return object(depth);
    }
  }
  std::uint64_t bits() { return std::uniform_int_distribution<std::uint64_t>()(random_); }
  double real() {
    if (below(2) == 0) return static_cast<double>(static_cast<std::int64_t>(below(2'000'001)) - 1'000'000) / 1000;
    double any;
    do {
      any = std::bit_cast<double>(bits());
    } while (!std::isfinite(any));
    return any;
  }
  std::string text() {
    constexpr const char* kPieces[] = {"a",
                                       "Z",
                                       "0",
                                       " ",
                                       "/",
                                       "\"",
                                       "\\",
                                       "\n",
                                       "\x01",
                                       "\x1F",
                                       "\x7F",
                                       "\xC3\xA4",
                                       "\xE4\xB8\xAD",
                                       "\xED\x9F\xBF",
                                       "\xEF\xBF\xBF",
                                       "\xF0\x9F\x98\x80",
                                       "\xF4\x8F\xBF\xBF",
                                       "word",
                                       "plain text of some length"};
    std::string text;
    for (std::size_t i = below(below(8) == 0 ? 80 : 12); i > 0; --i) {
      text += kPieces[below(std::size(kPieces))];
      if (below(200) == 0) text += '\0';
    }
    return text;
  }

  std::mt19937_64 random_;
};

void expectSame(const TKSValue& ours, const Peer& peers) {
  if (peers.is_null()) {
    EXPECT_TRUE(ours.isNull());
  } else if (peers.is_boolean()) {
    EXPECT_EQ(ours, TKSValue(peers.get<bool>()));
  } else if (peers.is_string()) {
    EXPECT_EQ(ours, TKSValue(peers.get<std::string>()));
  } else if (peers.is_number_unsigned() &&
             peers.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(ours, TKSValue(peers.get<std::uint64_t>()));
  } else if (peers.is_number_integer()) {
    EXPECT_EQ(ours, TKSValue(peers.get<std::int64_t>()));
  } else if (peers.is_number()) {
    EXPECT_EQ(ours.real(), peers.get<double>());
  } else if (peers.is_array()) {
    ASSERT_TRUE(ours.isArray());
    ASSERT_EQ(ours.array().size(), peers.size());
    for (std::size_t i = 0; i < peers.size(); ++i) expectSame(ours[i], peers[i]);
  } else {
    ASSERT_TRUE(ours.isDictionary());
    ASSERT_EQ(ours.dictionary().size(), peers.size());
    for (const auto& [key, value] : peers.items()) expectSame(ours[key], value);
  }
}

TEST(JsonRoundTrip, RandomDocumentsAreReadAndWrittenAsTheOtherImplementationDoes) {
  Documents documents(1);
  for (int round = 0; round < 3000; ++round) {
    const Peer document = documents.outermost();
    const std::string text = document.dump(documents.below(2) == 0 ? -1 : 2, ' ', documents.below(2) == 0);
    SCOPED_TRACE(text);
    TKSError error;
    const TKSValue value = tks::platform::json().parse(text, &error);
    ASSERT_EQ(error.localizedDescription, "");
    expectSame(value, document);
    const std::optional<std::string> back = tks::json::write(value, &error);
    ASSERT_TRUE(back);
    EXPECT_EQ(Peer::parse(*back), document);
    EXPECT_EQ(tks::platform::json().parse(*back, nullptr), value);
  }
}

TEST(JsonRoundTrip, TextsWithRandomMistakesAreRefusedExactlyWhenTheOtherImplementationRefusesThem) {
  constexpr std::string_view kMistakes = "\"\\{}[]:,0123456789eE+-. \ntrufalsn\x01\x80\xC3\xED\xFFud8c\xF4/";
  Documents documents(2);
  int refused = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string text = documents.outermost().dump();
    for (std::size_t i = documents.below(3); i > 0; --i) {
      const std::size_t place = documents.below(text.size());
      const char mistake = kMistakes[documents.below(kMistakes.size())];
      switch (documents.below(4)) {
        case 0:
          text.erase(place, 1);
          break;
        case 1:
          text.insert(place, 1, mistake);
          break;
        case 2:
          text[place] = mistake;
          break;
        default:
          text.resize(place);
      }
      if (text.empty()) text = " ";
    }
    SCOPED_TRACE(text);
    const Peer document = Peer::parse(text, nullptr, false);
    const TKSValue value = tks::platform::json().parse(text, nullptr);
    if (document.is_discarded() || !document.is_structured()) {
      EXPECT_TRUE(value.isNothing());
      ++refused;
    } else {
      ASSERT_FALSE(value.isNothing());
      expectSame(value, document);
    }
  }
  EXPECT_GT(refused, 1000);
}

}  // namespace
