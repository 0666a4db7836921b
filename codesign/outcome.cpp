#include "codesign/outcome.h"

#include <string_view>

namespace tks::codesign {
namespace {

/// What the platform's errors carry beside their numbers: "key=value, key=(a, b)".
class Details {
 public:
  void add(std::string_view key, std::string_view value) {
    text_.append(text_.empty() ? "" : ", ").append(key).append("=").append(value);
  }

  void add(std::string_view key, const std::vector<std::string>& list) {
    if (list.empty()) return;
    std::string joined;
    for (const std::string& item : list) joined.append(joined.empty() ? "" : ", ").append(item);
    add(key, "(" + joined + ")");
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace

Outcome outcomeOf(Status status) {
  Outcome outcome;
  outcome.status = status;
  outcome.text = statusText(status);
  return outcome;
}

std::string Outcome::description() const {
  Details details;
  if (!path.empty()) details.add("SecCSPath", path);
  details.add("SecCSResourceAdded", added);
  details.add("SecCSResourceAltered", altered);
  details.add("SecCSResourceMissing", missing);
  std::string result =
      "Error Domain=NSOSStatusErrorDomain Code=" + std::to_string(status) + " \"" + statusText(status) + "\"";
  return details.text().empty() ? result : result + " UserInfo={" + details.text() + "}";
}

}  // namespace tks::codesign
