#include "codesign/resources/property_list_replay.h"

#include <string>
#include <utility>
#include <vector>

namespace tks::codesign {
namespace {

/// Nesting stands on a stack, so that a deep value cannot exhaust the thread's own.
class Replay {
 public:
  explicit Replay(PropertyListHandler& handler) : handler_(handler) {}

  void tell(const TKSValue& whole) {
    begin(whole);
    while (!open_.empty()) {
      Open& open = open_.back();
      if (open.at == open.values.size()) {
        if (open.isDictionary) {
          handler_.endDictionary();
        } else {
          handler_.endArray();
        }
        open_.pop_back();
        continue;
      }
      const std::size_t at = open.at++;
      if (open.isDictionary) handler_.key(open.keys[at]);
      const TKSValue value = open.values[at];
      begin(value);
    }
  }

 private:
  struct Open {
    bool isDictionary = false;
    std::vector<std::string> keys;
    std::vector<TKSValue> values;
    std::size_t at = 0;
  };

  void begin(const TKSValue& value) {
    switch (value.kind()) {
      case TKSValue::Kind::dictionary: {
        Open open{true, {}, {}, 0};
        const TKSDictionary dictionary = value.dictionary();
        for (const auto& [key, element] : dictionary) {
          open.keys.emplace_back(key);
          open.values.push_back(element);
        }
        handler_.beginDictionary();
        open_.push_back(std::move(open));
        return;
      }
      case TKSValue::Kind::array: {
        const TKSArray array = value.array();
        handler_.beginArray();
        open_.push_back({false, {}, std::vector<TKSValue>(array.begin(), array.end()), 0});
        return;
      }
      case TKSValue::Kind::text:
        return handler_.text(value.text());
      case TKSValue::Kind::data:
        return handler_.data(value.data());
      case TKSValue::Kind::boolean:
        return handler_.boolean(value.boolean());
      case TKSValue::Kind::integer:
      case TKSValue::Kind::real:
        return handler_.number(value.real());
      default:
        return handler_.other();
    }
  }

  PropertyListHandler& handler_;
  std::vector<Open> open_;
};

}  // namespace

void replay(const TKSValue& whole, PropertyListHandler& handler) { Replay(handler).tell(whole); }

}  // namespace tks::codesign
