#include "codesign/resources/code_resources.h"

#include <algorithm>
#include <array>
#include <utility>

#include "codesign/container/status.h"
#include "codesign/resources/property_list_events.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kMostRules = 1000;
constexpr std::size_t kLargestArena = std::size_t{1} << 30;

/// What the property list holds for one path or one rule, before it is known what it amounts to.
struct Draft {
  bool isDictionary = false;
  std::optional<bool> plainBoolean;
  /// A value of a kind that cannot stand where it does.
  bool wrongKind = false;
  /// By their type's number; 0 is "hash" without a number. Empty for one that is no data.
  std::array<std::optional<TKSData>, 5> hashes;
  std::optional<std::string> link;
  std::optional<std::string> requirement;
  bool optional = false;
  bool omitted = false;
  bool nested = false;
  double weight = 1;
};

/// The number after "hash"; nothing for other keys and for types that are not supported.
std::optional<std::size_t> hashNumber(std::string_view key) {
  if (key == "hash") return 0;
  if (key.size() == 5 && key.starts_with("hash") && key[4] >= '1' && key[4] <= '4') {
    return static_cast<std::size_t>(key[4] - '0');
  }
  return std::nullopt;
}

}  // namespace

/// Takes the parts of the list that matter as they come: sections stand at depth two, entries at three, the fields of
/// an entry inside.
class CodeResources::Builder final : public PropertyListHandler {
 public:
  Builder(CodeResources& result, const std::vector<HashType>& types) : result_(result), types_(types) {}

  /// To be called when all has come.
  void finish() {
    if (!isDictionary_ || tooLarge_) {
      result_.form_ = Form::damaged;
    } else if (!hasFiles_ || !rules_[0]) {
      result_.form_ = Form::incomplete;
    } else if (!rules_[hasFiles2_ ? 1 : 0]) {
      result_.form_ = Form::withoutRules;
    } else {
      result_.form_ = Form::usable;
      result_.version_ = hasFiles2_ ? 2 : 1;
      result_.rules_ = std::move(*rules_[hasFiles2_ ? 1 : 0]);
    }
  }

  void beginDictionary() override { begin(true); }
  void endDictionary() override { end(); }
  void beginArray() override { begin(false); }
  void endArray() override { end(); }

  void key(std::string_view text) override {
    if (depth_ <= 2) name_ = text;
    if (depth_ == 2) draft_ = Draft();
    if (depth_ == 3) field_ = text;
  }

  void text(std::string_view text) override {
    if (isField() && field_ == "symlink") {
      draft_.link = text;
    } else if (isField() && field_ == "requirement") {
      draft_.requirement = text;
    } else {
      other();
    }
  }

  void data(Bytes bytes) override {
    if (depth_ == 2) {
      draft_.hashes[0] = TKSData(bytes.begin(), bytes.end());
      finishEntry();
    } else if (const std::optional<std::size_t> number = hashNumber(field_); isField() && number) {
      draft_.hashes[*number] = TKSData(bytes.begin(), bytes.end());
    } else {
      other();
    }
  }

  void number(double value) override {
    if (isField() && field_ == "weight") {
      draft_.weight = value;
    } else {
      other();
    }
  }

  void boolean(bool value) override {
    if (depth_ == 2) {
      draft_.plainBoolean = value;
      finishEntry();
    } else if (bool* flag = isField() ? flagOf(field_) : nullptr; flag != nullptr) {
      *flag = value;
    } else {
      other();
    }
  }

  /// A value of a kind that means nothing where it stands.
  void other() override {
    if (depth_ == 2) {
      draft_.wrongKind = true;
      finishEntry();
    } else if (isField()) {
      noteWrongField();
    }
  }

 private:
  enum class Section { none, files, rules };

  bool isField() const { return depth_ == 3 && draft_.isDictionary; }

  bool* flagOf(std::string_view field) {
    if (field == "optional") return &draft_.optional;
    if (field == "omit") return &draft_.omitted;
    if (field == "nested") return &draft_.nested;
    return nullptr;
  }

  /// Fields that are not known may hold anything.
  void noteWrongField() {
    if (field_ == "symlink" || field_ == "requirement" || field_ == "optional") draft_.wrongKind = true;
    if (const std::optional<std::size_t> number = hashNumber(field_)) draft_.hashes[*number] = TKSData();
  }

  void begin(bool dictionary) {
    ++depth_;
    if (depth_ == 1) isDictionary_ = dictionary;
    if (depth_ == 2 && dictionary && isDictionary_) beginSection();
    if (depth_ == 3) draft_.isDictionary = dictionary;
    if (depth_ == 3 && !dictionary) draft_.wrongKind = true;
    if (depth_ == 4 && draft_.isDictionary) noteWrongField();
  }

  void end() {
    if (depth_ == 3) finishEntry();
    if (depth_ == 2) section_ = Section::none;
    --depth_;
  }

  void beginSection() {
    if (name_ == "files") {
      hasFiles_ = true;
      // Of both versions the second counts, wherever it stands.
      section_ = hasFiles2_ ? Section::none : Section::files;
    } else if (name_ == "files2") {
      hasFiles2_ = true;
      result_.entries_.clear();
      result_.arena_.clear();
      section_ = Section::files;
    } else if (name_ == "rules" || name_ == "rules2") {
      openRules_ = name_ == "rules" ? 0 : 1;
      rules_[openRules_].emplace();
      section_ = Section::rules;
    }
  }

  void finishEntry() {
    if (section_ == Section::files) addFile();
    if (section_ == Section::rules) addRule();
    draft_ = Draft();
    field_.clear();
  }

  void addRule() {
    std::vector<Rule>& rules = *rules_[openRules_];
    if (rules.size() > kMostRules) return;
    Rule rule;
    rule.pattern = name_;
    rule.weight = draft_.weight;
    rule.plain = draft_.plainBoolean == true;
    rule.omitted = draft_.omitted || draft_.plainBoolean == false;
    rule.nested = draft_.nested;
    rule.invalid = !(draft_.isDictionary || draft_.plainBoolean) || rules.size() == kMostRules;
    rules.push_back(std::move(rule));
  }

  std::uint32_t store(std::string_view text) {
    tooLarge_ |= text.size() > kLargestArena - result_.arena_.size();
    const auto at = static_cast<std::uint32_t>(result_.arena_.size());
    if (!tooLarge_) result_.arena_.append(text);
    return at;
  }

  void addFile() {
    Entry entry;
    entry.pathSize = static_cast<std::uint32_t>(name_.size());
    entry.path = store(name_);
    entry.optional = draft_.optional;
    if (draft_.wrongKind || draft_.plainBoolean) {
      entry.kind = Seal::Kind::invalid;
    } else if (draft_.requirement || draft_.link) {
      entry.kind = draft_.requirement ? Seal::Kind::nested : Seal::Kind::link;
      const std::string& text = draft_.requirement ? *draft_.requirement : *draft_.link;
      entry.contentSize = static_cast<std::uint32_t>(text.size());
      entry.content = store(text);
    } else {
      entry.kind = Seal::Kind::file;
      storeHashes(entry);
    }
    if (!tooLarge_) result_.entries_.push_back(entry);
  }

  /// The hash of each type, one after the other. "hash" stands for types that have none of their own.
  void storeHashes(Entry& entry) {
    entry.content = static_cast<std::uint32_t>(result_.arena_.size());
    for (const HashType type : types_) {
      const std::optional<TKSData>& own = draft_.hashes[static_cast<std::size_t>(type)];
      const std::optional<TKSData>& hash = own ? own : draft_.hashes[0];
      if (!hash || hash->empty()) {
        entry.withoutHash = true;
        return;
      }
      if (hash->size() != hashSize(type)) {
        entry.neverMatches = true;
        return;
      }
      store({reinterpret_cast<const char*>(hash->data()), hash->size()});
      entry.contentSize += static_cast<std::uint32_t>(hash->size());
    }
  }

  CodeResources& result_;
  const std::vector<HashType>& types_;
  std::size_t depth_ = 0;
  bool isDictionary_ = false;
  bool hasFiles_ = false;
  bool hasFiles2_ = false;
  bool tooLarge_ = false;
  std::array<std::optional<std::vector<Rule>>, 2> rules_;
  std::size_t openRules_ = 0;
  Section section_ = Section::none;
  std::string name_;
  std::string field_;
  Draft draft_;
};

CodeResources::CodeResources(const ByteSource& source, const std::vector<HashType>& types, HashType digestType) {
  Hasher hasher(digestType);
  hasher.start();
  Builder builder(*this, types);
  if (readPropertyList(source, hasher, builder)) builder.finish();
  digest_ = hasher.finish();

  const auto pathOf = [this](const Entry& entry) { return textAt(entry.path, entry.pathSize); };
  // Usually they are sorted already. Of equal paths the last one counts.
  if (!std::ranges::is_sorted(entries_, {}, pathOf)) std::ranges::stable_sort(entries_, {}, pathOf);
  const auto kept = std::unique(entries_.rbegin(), entries_.rend(),
                                [&](const Entry& a, const Entry& b) { return pathOf(a) == pathOf(b); });
  entries_.erase(entries_.begin(), kept.base());
}

Seal CodeResources::seal(std::size_t number) const {
  const Entry& entry = entries_[number];
  Seal seal;
  seal.kind = entry.kind;
  seal.optional = entry.optional;
  seal.withoutHash = entry.withoutHash;
  seal.neverMatches = entry.neverMatches;
  seal.path = textAt(entry.path, entry.pathSize);
  const std::string_view content = textAt(entry.content, entry.contentSize);
  if (entry.kind == Seal::Kind::file) {
    seal.hashes = {reinterpret_cast<const std::uint8_t*>(content.data()), content.size()};
  } else {
    seal.text = content;
  }
  return seal;
}

std::optional<std::uint32_t> CodeResources::find(std::string_view path) const {
  const auto pathOf = [this](const Entry& entry) { return textAt(entry.path, entry.pathSize); };
  const auto found = std::ranges::lower_bound(entries_, path, {}, pathOf);
  if (found == entries_.end() || pathOf(*found) != path) return std::nullopt;
  return static_cast<std::uint32_t>(found - entries_.begin());
}

void CodeResources::prepareRules() {
  for (const Rule& rule : rules_) {
    if (rule.invalid || !patterns_.add(rule.pattern)) fail(status::kResourceRulesInvalid);
  }
}

RuleVerdict CodeResources::verdict(std::string_view path) {
  if (std::ranges::find(excluded_, path) != excluded_.end()) return {false, true, false};
  const Rule* best = nullptr;
  for (const std::uint32_t number : patterns_.find(path)) {
    const Rule& rule = rules_[number];
    if (best == nullptr || rule.weight > best->weight) best = &rule;
  }
  if (best == nullptr) return {};
  return {!best->omitted, false, best->nested};
}

bool CodeResources::hasWeakRules() const {
  constexpr std::string_view kMayBeOmitted[] = {"^(.*/)?\\.DS_Store$", "^Resources/.*\\.lproj/locversion.plist$",
                                                "^.*\\.lproj/locversion.plist$", "^Info\\.plist$", "^PkgInfo$"};
  const std::string_view everything = version_ == 1 ? "^Resources/" : "^.*";
  bool coversEverything = false;
  for (const Rule& rule : rules_) {
    coversEverything |= rule.plain && rule.pattern == everything;
    if (rule.omitted && std::ranges::find(kMayBeOmitted, rule.pattern) == std::end(kMayBeOmitted)) return true;
  }
  return !coversEverything;
}

}  // namespace tks::codesign
