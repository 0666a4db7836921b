#include "codesign/validity.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "codesign/code_slice.h"
#include "codesign/outcome.h"
#include "codesign/requirement/requirement.h"
#include "codesign/resources/code_resources.h"
#include "codesign/resources/resource_check.h"
#include "platform/posix/bundle_links.h"

namespace tks::codesign {
namespace {

/// What of some code is checked.
struct Scope {
  bool pages = true;
  bool resources = true;
  Strictness strictness = Strictness::plain;
  bool modernSeals = false;

  bool isStrict() const { return strictness != Strictness::plain; }
};

/// Code that is only asked whether it is the code that is meant.
constexpr Scope kIdentityAlone{.pages = false, .resources = false};

Scope scopeOf(Depth depth) {
  switch (depth) {
    case Depth::plain:
      return {};
    case Depth::strict:
      return {.strictness = Strictness::complete};
    case Depth::assessing:
      break;
  }
  return {.strictness = Strictness::strict, .modernSeals = true};
}

/// Checks one piece of code, whatever is inside of it.
class CodeCheck {
 public:
  CodeCheck(const CodeLayout& layout, const AppleRoots& roots, const Scope& scope)
      : layout_(layout),
        roots_(roots),
        scope_(scope),
        chosen_(layout.image ? layout.image->chosenSlice() : 0),
        main_(layout, chosen_, roots) {}

  /// Fails when something is wrong, except with single resources, which are returned. `nested` receives what is
  /// inside.
  ResourceProblems run(const Requirement* requirement, std::vector<NestedCode>& nested) {
    checkSlice(main_, requirement);
    const std::size_t slices = layout_.image ? layout_.image->slices().size() : 1;
    for (std::size_t i = 0; i < slices; ++i) {
      if (i == chosen_) continue;
      CodeSlice other(layout_, i, roots_);
      main_.checkSameSigner(other);
      checkSlice(other, requirement);
    }
    ResourceProblems problems;
    if (scope_.resources) problems = checkSeal(nested);
    if (problems.none() && scope_.isStrict() && layout_.strictIssue != status::kGood) fail(layout_.strictIssue);
    return problems;
  }

  /// What code of the same maker meets; empty when nobody signed this.
  std::string sameMaker() {
    if (!scope_.isStrict() || !main_.signer()) return {};
    return sameMakerRequirement(main_.signer()->view());
  }

 private:
  void checkSlice(CodeSlice& slice, const Requirement* requirement) {
    slice.checkComponents();
    slice.checkTopDirectory();
    if (scope_.pages) slice.checkCodePages();
    if (scope_.isStrict()) slice.checkNothingFollows();
    if (scope_.strictness == Strictness::complete) slice.checkBundleIsSealed();
    if (requirement != nullptr) slice.checkRequirement(*requirement);
  }

  ResourceProblems checkSeal(std::vector<NestedCode>& nested) {
    const std::optional<Digest> expected = main_.directories().best().specialHash(slot::kResources);
    if (!expected) {
      if (layout_.isBundle()) fail(status::kResourcesNotFound);
      return {};
    }
    SignatureComponents components(layout_, chosen_);
    const std::optional<ByteSource> file = components.find(slot::kResources);
    if (!file) fail(status::kResourceDirectoryFailed);
    CodeResources seal(*file, main_.directories().types(), main_.directories().bestType());
    if (!seal.digest().matches(expected->bytes())) fail(status::kResourceDirectoryFailed);
    judgeForm(seal);
    if (scope_.modernSeals) judgeStrength(seal);
    excludeSignature(seal);
    seal.prepareRules();
    ResourceScope scope{scope_.strictness, sameMaker(), {}};
    if (scope_.strictness == Strictness::complete) scope.signatureFiles = main_.countedFiles();
    return checkResources(layout_, seal, main_.directories(), scope, nested);
  }

  static void judgeForm(const CodeResources& seal) {
    switch (seal.form()) {
      case CodeResources::Form::damaged:
        fail(status::kBadDictionaryFormat);
      case CodeResources::Form::incomplete:
        fail(status::kResourcesNotFound);
      case CodeResources::Form::withoutRules:
        fail(status::kResourcesInvalid);
      case CodeResources::Form::usable:
        return;
    }
  }

  static void judgeStrength(const CodeResources& seal) {
    if (seal.hasWeakRules()) fail(status::kWeakResourceRules);
    if (seal.version() == 1) fail(status::kWeakResourceEnvelope);
  }

  /// The seal leaves out the signature itself, what is added to a signed bundle later, and what the pages cover.
  void excludeSignature(CodeResources& seal) const {
    seal.exclude(std::string(kSignatureFolder));
    seal.exclude(std::string(componentName(slot::kResources)));
    seal.exclude(std::string(kStoreReceiptFolder));
    const std::string prefix = layout_.supportFolder + "/";
    if (layout_.executable.starts_with(prefix)) seal.exclude(layout_.executable.substr(prefix.size()));
  }

  const CodeLayout& layout_;
  const AppleRoots& roots_;
  const Scope scope_;
  const std::size_t chosen_;
  CodeSlice main_;
};

/// The requirement that all code meets.
constexpr std::string_view kAnybody = "always";

/// Checks code and the code inside of it, level by level.
class DeepCheck {
 public:
  /// `oneSigner`: what is inside has to be of the same signer, whatever the seals ask for.
  DeepCheck(const AppleRoots& roots, Depth depth, bool oneSigner = false)
      : roots_(roots), depth_(depth), oneSigner_(oneSigner) {}

  Outcome run(const CodeLayout& layout) {
    std::vector<NestedCode> nested;
    Status resources = status::kGood;
    try {
      if (depth_ == Depth::strict) requireNoLinkOut(layout);
      markSeen(layout);
      CodeCheck check(layout, roots_, scopeOf(depth_));
      resources = take(check.run(nullptr, nested));
      if (oneSigner_) meantSigner_ = Requirement::fromText(check.sameMaker());
      if (oneSigner_ && !meantSigner_) fail(status::kRequirementFailed);
      if (isWhole()) addOtherVersions(layout, check.sameMaker(), nested);
    } catch (const Failure& failure) {
      result_.status = failure.status;
      return std::move(result_);
    }
    std::ranges::sort(nested, {}, &NestedCode::path);
    waiting_.assign(nested.begin(), nested.end());
    // A failure of nested code comes before what is wrong with single resources.
    while (!waiting_.empty() && result_.status == status::kGood) {
      const NestedCode next = std::move(waiting_.front());
      waiting_.pop_front();
      checkNested(next);
    }
    if (result_.status == status::kGood) result_.status = resources;
    if (result_.status == status::kGood && unmet_) {
      result_.status = status::kBadNestedCode;
      result_.path = *unmet_;
    }
    return std::move(result_);
  }

 private:
  bool isWhole() const { return depth_ != Depth::plain; }

  /// Keeps what is wrong with single resources, and returns its status.
  Status take(ResourceProblems problems) {
    result_.added = std::move(problems.added);
    result_.altered = std::move(problems.altered);
    result_.missing = std::move(problems.missing);
    return problems.status;
  }

  /// False when the code was checked before. Other code may share its executable and bring resources of its own.
  bool markSeen(const CodeLayout& layout) {
    return seen_.insert(layout.supportFolder + '\0' + layout.executable).second;
  }

  /// Before anything is read through links: none of a bundle leads out of it, and all that is checked for it lies in
  /// it.
  static void requireNoLinkOut(const CodeLayout& layout) {
    if (layout.isBundle() && posix::findLinkOut(layout.root)) fail(status::kInvalidLink);
    if (!layout.isWithin(layout.root)) fail(status::kInvalidLink);
  }

  /// Every version of a framework has to be what the current one has to be.
  static void addOtherVersions(const CodeLayout& layout, const std::string& requirement,
                               std::vector<NestedCode>& nested) {
    for (const std::string& version : layout.otherVersions) {
      nested.push_back({version, requirement.empty() ? std::string(kAnybody) : requirement, true});
    }
  }

  void checkNested(const NestedCode& code) {
    try {
      checkAsMeant(code);
    } catch (const Failure& failure) {
      if (failure.status == status::kRequirementFailed && !code.isOtherVersion) {
        if (!unmet_) unmet_ = code.path;
        return;
      }
      result_.status = code.isOtherVersion ? status::kBadFrameworkVersion : failure.status;
      result_.path = code.path;
    }
  }

  void checkAsMeant(const NestedCode& code) {
    const std::optional<Requirement> requirement = Requirement::fromText(code.requirement);
    if (!requirement) fail(status::kResourcesInvalid);
    const CodeLayout layout = findCode(code.path);
    // Whatever else is known of it: check each time that it is the code that is meant. Links can lead to other code,
    // which this check is not about, or back to code that was checked already.
    const bool isInPlace = layout.isWithin(code.path);
    const bool goesDeep = isWhole() && isInPlace && markSeen(layout);
    std::vector<NestedCode> nested;
    if (meantSigner_) CodeCheck(layout, roots_, kIdentityAlone).run(&*meantSigner_, nested);
    const Scope scope = goesDeep ? scopeOf(depth_) : kIdentityAlone;
    const ResourceProblems problems = CodeCheck(layout, roots_, scope).run(&*requirement, nested);
    if (!problems.none()) fail(problems.status);
    if (isWhole() && !isInPlace) fail(status::kInvalidLink);
    if (goesDeep) addOtherVersions(layout, code.requirement, nested);
    waiting_.insert(waiting_.end(), nested.begin(), nested.end());
  }

  const AppleRoots& roots_;
  const Depth depth_;
  const bool oneSigner_;
  std::optional<Requirement> meantSigner_;
  Outcome result_;
  std::deque<NestedCode> waiting_;
  std::optional<std::string> unmet_;
  std::set<std::string> seen_;
};

}  // namespace

Outcome checkValidity(const CodeLayout& layout, const AppleRoots& roots, Depth depth) {
  Outcome outcome = DeepCheck(roots, depth).run(layout);
  outcome.text = statusText(outcome.status);
  return outcome;
}

Outcome checkOneSigner(const CodeLayout& layout, const AppleRoots& roots) {
  Outcome outcome = DeepCheck(roots, Depth::strict, true).run(layout);
  outcome.text = statusText(outcome.status);
  return outcome;
}

Outcome checkRequirement(const CodeLayout& layout, const AppleRoots& roots, std::string_view text) {
  const std::optional<Requirement> requirement = Requirement::fromText(text);
  if (!requirement) return outcomeOf(status::kRequirementInvalid);
  return attempt([&] {
    std::vector<NestedCode> unused;
    CodeCheck(layout, roots, kIdentityAlone).run(&*requirement, unused);
  });
}

}  // namespace tks::codesign
