#include "install/ContentCheck.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include <tksinterface/TKSURL.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/SignatureErrors.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

/// A bundle as it was when it passed.
struct Passed {
  TKSData mark;
  ContentChecks checks;

  bool covers(const TKSData& present, ContentChecks asked) const {
    return mark == present && (checks.whole || !asked.whole) && (checks.oneSigner || !asked.oneSigner);
  }
};

/// Those of this process, by their paths. Kept in memory alone: a file could be written by whoever changes bundles.
class PassedBundles {
 public:
  bool have(const std::string& path, const TKSData& mark, ContentChecks checks) {
    const std::scoped_lock lock(mutex_);
    const auto found = passed_.find(path);
    return found != passed_.end() && found->second.covers(mark, checks);
  }
  void note(const std::string& path, TKSData mark, ContentChecks checks) {
    const std::scoped_lock lock(mutex_);
    if (passed_.size() >= kMost) passed_.clear();
    passed_.insert_or_assign(path, Passed{std::move(mark), checks});
  }

 private:
  /// A host starts one launcher, or two.
  static constexpr std::size_t kMost = 16;

  std::mutex mutex_;
  std::map<std::string, Passed> passed_;
};

PassedBundles& passedBundles() {
  static auto& bundles = *new PassedBundles;
  return bundles;
}

using Check = std::int32_t (platform::StaticCode::*)(std::string& details);

/// Whether the code at a path passes one of the platform's checks.
bool passes(std::string_view path, Check check, TKSError* error) {
  std::unique_ptr<platform::StaticCode> code;
  std::string details;
  std::int32_t status = platform::signatures().create(path, code);
  if (status == 0) status = code == nullptr ? kInternalComponentError : (code.get()->*check)(details);
  return reportSignatureStatus(status, details, error);
}

/// What an installation checks about the content alone, and not about who signed it.
bool isWhole(std::string_view path, TKSError* error) {
  const CheckBeforeInstalling content(path);
  return content.passedPlain(error) && content.passedInDepth(error);
}

bool runChecks(std::string_view path, ContentChecks checks, TKSError* error) {
  return (!checks.whole || isWhole(path, error)) && (!checks.oneSigner || checkOneSigner(path, error));
}

bool refuse(std::string text, TKSError* error) {
  if (error != nullptr) {
    *error = makeError(TKSErrorReason::notTrusted, "com.tarvo.kovra.codesign", 0, std::move(text));
  }
  return false;
}

}  // namespace

CheckBeforeInstalling::CheckBeforeInstalling(std::string_view path) {
  const std::unique_ptr<platform::StaticCode> code = codeToCheck(TKSURL::fileURLWithPath(path), &failure_);
  if (code == nullptr) return;
  opened_ = true;
  verdict_ = code->checkBeforeInstalling();
}

bool CheckBeforeInstalling::passedPlain(TKSError* error) const {
  if (!opened_ && error != nullptr) *error = failure_;
  return opened_ && reportSignatureStatus(verdict_.plain, verdict_.details, error);
}

bool CheckBeforeInstalling::passedInDepth(TKSError* error) const {
  return reportSignatureStatus(verdict_.inDepth, verdict_.details, error);
}

bool checkOneSigner(std::string_view path, TKSError* error) {
  return passes(path, &platform::StaticCode::checkOneSigner, error);
}

bool checkContent(std::string_view path, ContentChecks checks, TKSError* error) {
  if (!checks.whole && !checks.oneSigner) return true;
  const std::string name = withoutClosingSlashes(path);
  TKSError reason;
  std::optional<TKSData> mark = platform::files().changeMark(name, &reason);
  if (!mark) return refuse(formatted("The launcher's content can not be checked: %@", reason), error);
  if (passedBundles().have(name, *mark, checks)) return true;
  if (!runChecks(name, checks, error)) return false;
  // What was read was there all the time, from before the check.
  if (platform::files().changeMark(name, nullptr) != mark) {
    return refuse("The launcher was changed while it was checked.", error);
  }
  passedBundles().note(name, *std::move(mark), checks);
  return true;
}

}  // namespace tks::install
