#include "codesign/signing/seal_writer.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "codesign/container/digest.h"
#include "codesign/container/signature_components.h"
#include "codesign/container/super_blob.h"
#include "codesign/description.h"
#include "codesign/resources/code_resources.h"
#include "platform/platform.h"
#include "platform/posix/extended_attributes.h"

namespace tks::signing {
namespace {

namespace fs = std::filesystem;
using codesign::HashType;

TKSValue rule(double weight, const char* mark = nullptr) {
  TKSDictionary dictionary;
  if (mark != nullptr) dictionary.set(mark, true);
  dictionary.set("weight", weight);
  return dictionary;
}

/// The rules of both versions; shallow bundles have no Resources folder and no nested code in them.
TKSDictionary rules(bool second, bool shallow) {
  const std::string resources = shallow ? "" : "Resources/";
  TKSDictionary rules;
  if (second) {
    rules.set("^.*", true);
    rules.set(".*\\.dSYM($|/)", rule(11));
    rules.set("^(.*/)?\\.DS_Store$", rule(2000, "omit"));
    rules.set("^Info\\.plist$", rule(20, "omit"));
    rules.set("^PkgInfo$", rule(20, "omit"));
    rules.set("^version\\.plist$", rule(20));
    rules.set("^embedded\\.provisionprofile$", rule(20));
    if (!shallow) {
      rules.set("^Resources/", rule(20));
      rules.set("^[^/]+$", rule(10, "nested"));
      rules.set(
          "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|Library/"
          "(Automator|Spotlight|LoginItems))/",
          rule(10, "nested"));
    }
  } else {
    rules.set(shallow ? "^.*" : "^Resources/", true);
    rules.set("^version.plist$", true);
  }
  rules.set("^" + resources + ".*\\.lproj/", rule(1000, "optional"));
  rules.set("^" + resources + "Base\\.lproj/", rule(1010));
  rules.set("^" + resources + ".*\\.lproj/locversion.plist$", rule(1100, "omit"));
  return rules;
}

TKSData serialize(const TKSDictionary& list) {
  std::optional<TKSData> xml = platform::propertyLists().serialize(list, platform::PropertyLists::Format::xml, nullptr);
  if (!xml) throw std::runtime_error("cannot write the seal");
  return *std::move(xml);
}

TKSData hashOfFile(const std::string& path, HashType type) {
  const codesign::Digest digest = codesign::hashOf(codesign::ByteSource(codesign::File::open(path)), type);
  return {digest.bytes().begin(), digest.bytes().end()};
}

/// Collects what one version of the rules seals.
class SealWalk {
 public:
  SealWalk(const codesign::CodeLayout& layout, const SealOptions& options, bool second, const TKSDictionary& rules)
      : layout_(layout), options_(options), second_(second), judge_(judgeFor(rules)) {
    judge_.exclude(std::string(codesign::kSignatureFolder));
    judge_.exclude("CodeResources");
    judge_.exclude("_MASReceipt");
    const std::string prefix = layout.supportFolder + "/";
    if (layout.executable.starts_with(prefix)) judge_.exclude(layout.executable.substr(prefix.size()));
    judge_.prepareRules();
  }

  TKSDictionary run() {
    for (auto at = fs::recursive_directory_iterator(layout_.supportFolder); at != fs::end(at); ++at) visit(at);
    return TKSDictionary(std::move(files_));
  }

 private:
  static codesign::CodeResources judgeFor(const TKSDictionary& rules) {
    TKSDictionary list;
    list.set("rules", rules);
    list.set("files", TKSDictionary());
    return codesign::CodeResources(codesign::ByteSource(serialize(list)), {HashType::sha256}, HashType::sha256);
  }

  void visit(fs::recursive_directory_iterator& at) {
    const std::string path = at->path().string();
    const std::string relative = path.substr(layout_.supportFolder.size() + 1);
    const codesign::RuleVerdict verdict = judge_.verdict(relative);
    if (at->is_symlink()) {
      if (verdict.sealed && second_) add(relative, "symlink", fs::read_symlink(path).string());
    } else if (at->is_directory()) {
      const bool isCode = verdict.nested && at->path().filename().string().find('.') != std::string::npos;
      if (isCode || verdict.excluded) at.disable_recursion_pending();
      if (isCode) addCode(relative, path);
    } else if (at->is_regular_file() && verdict.sealed) {
      // Attributes that the volume has no room for, such as the signature of the code beside it, are no resource.
      if (posix::isSideCar(path)) return;
      if (verdict.nested) {
        addCode(relative, path);
      } else {
        addFile(relative, path);
      }
    }
  }

  void add(const std::string& relative, const char* key, const TKSValue& value) {
    TKSDictionary entry;
    entry.set(key, value);
    files_.emplace_back(relative, entry);
  }

  void addFile(const std::string& relative, const std::string& path) {
    if (!second_) {
      files_.emplace_back(relative, hashOfFile(path, HashType::sha1));
      return;
    }
    TKSDictionary entry;
    entry.set("hash", hashOfFile(path, HashType::sha1));
    for (const HashType type : options_.hashTypes) {
      if (type == HashType::sha1) continue;
      entry.set("hash" + std::to_string(static_cast<int>(type)), hashOfFile(path, type));
    }
    if (relative.find(".lproj/") != std::string::npos && relative.find("Base.lproj/") == std::string::npos) {
      entry.set("optional", true);
    }
    files_.emplace_back(relative, entry);
  }

  void addCode(const std::string& relative, const std::string& path) {
    const codesign::Description code =
        codesign::readDescription(codesign::findCode(path), codesign::AppleRoots::builtIn());
    if (code.designatedRequirement.empty()) throw std::runtime_error(path + " is not signed");
    TKSDictionary entry;
    entry.set("cdhash", code.best.cdHash);
    entry.set("requirement", code.designatedRequirement);
    files_.emplace_back(relative, entry);
  }

  const codesign::CodeLayout& layout_;
  const SealOptions& options_;
  const bool second_;
  codesign::CodeResources judge_;
  std::vector<std::pair<std::string, TKSValue>> files_;
};

}  // namespace

TKSData makeSeal(const codesign::CodeLayout& layout, const SealOptions& options) {
  const bool shallow = layout.supportFolder == layout.root && !layout.infoPlist.ends_with("/Resources/Info.plist");
  TKSDictionary list;
  for (const bool second : {false, true}) {
    if (second && options.firstVersionOnly) continue;
    const TKSDictionary own = rules(second, shallow);
    list.set(second ? "rules2" : "rules", own);
    list.set(second ? "files2" : "files", SealWalk(layout, options, second, own).run());
  }
  return serialize(list);
}

}  // namespace tks::signing
