#include <nlohmann/json.hpp>

#include <limits>
#include <string>

#include "platform/platform.h"
#include "tests/fuzz/Require.h"

// Any bytes as JSON, for our reader and for another one: both refuse it or both read the same.

namespace {

using Peer = nlohmann::json;
using tks::fuzz::require;

constexpr std::size_t kDeepest = 200;

void expectSame(const TKSValue& ours, const Peer& peers) {
  switch (peers.type()) {
    case Peer::value_t::null:
      return require(ours.isNull());
    case Peer::value_t::boolean:
      return require(ours.isBoolean() && ours.boolean() == peers.get<bool>());
    case Peer::value_t::string:
      return require(ours.isText() && ours.text() == peers.get_ref<const std::string&>());
    case Peer::value_t::number_integer:
      return require(ours.isInteger() && ours.integer() == peers.get<std::int64_t>());
    case Peer::value_t::number_unsigned:
      return require(ours.isInteger() && ours.unsignedInteger() == peers.get<std::uint64_t>());
    case Peer::value_t::number_float:
      return require(ours.isReal() && ours.real() == peers.get<double>());
    case Peer::value_t::array:
      require(ours.isArray() && ours.array().size() == peers.size());
      for (std::size_t i = 0; i < peers.size(); ++i) expectSame(ours[i], peers[i]);
      return;
    default:
      require(ours.isDictionary() && ours.dictionary().size() == peers.size());
      for (const auto& [key, value] : peers.items()) expectSame(ours[key], value);
  }
}

/// The readers have bounds of their own for these.
bool isTooDeep(std::string_view text) {
  std::size_t depth = 0;
  for (const char byte : text) {
    if (byte == '[' || byte == '{') ++depth;
  }
  return depth > kDeepest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tks::fuzz::textOf(data, size);
  if (isTooDeep(text)) return 0;
  TKSError error;
  const TKSValue ours = tks::platform::json().parse(text, &error);
  // The other reader takes a zero byte for the end; nowhere in a text may there be one.
  if (text.find('\0') != std::string_view::npos) return require(ours.isNothing()), 0;
  // Of byte order marks at the beginning both take one.
  const Peer peers = Peer::parse(text, nullptr, false);
  if (peers.is_discarded() || !peers.is_structured()) {
    require(ours.isNothing());
  } else {
    expectSame(ours, peers);
  }
  return 0;
}
