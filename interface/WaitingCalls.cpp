#include "interface/WaitingCalls.h"

#include <algorithm>
#include <utility>

#include "foundation/Logging.h"

namespace tks::interface {

WaitingCalls::Call WaitingCalls::join(Call call) {
  std::shared_ptr<std::vector<Call>> calls = calls_.lock();
  if (!calls) calls_ = calls = std::make_shared<std::vector<Call>>();
  calls->push_back(std::move(call));

  Call all;
  if (std::ranges::any_of(*calls, [](const Call& one) { return static_cast<bool>(one.finish); })) {
    all.finish = [calls] {
      for (const Call& one : std::exchange(*calls, {})) callHost("finishBlock", one.finish);
    };
  }
  if (std::ranges::any_of(*calls, [](const Call& one) { return static_cast<bool>(one.error); })) {
    all.error = [calls](const TKSError& error) {
      for (const Call& one : std::exchange(*calls, {})) callHost("errorBlock", one.error, error);
    };
  }
  return all;
}

bool WaitingCalls::isWaiting() const {
  const std::shared_ptr<std::vector<Call>> calls = calls_.lock();
  return calls && !calls->empty();
}

}  // namespace tks::interface
