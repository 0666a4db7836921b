#include "tools/tksctl/bundle/content.h"

#include <utility>

#include "BuildValues.h"
#include "platform/platform.h"
#include "tools/tksctl/bundle/this_computer.h"
#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {

BundleContent::BundleContent(const BundleWishes& wishes) : days_(wishes.days) {
  hideThisComputer(scrubber_);
  for (const std::string& word : wishes.hidden) scrubber_.hide(Personal::word, word);
}

void BundleContent::addDocument(const std::string& name, const std::string& what, const TKSValue& document) {
  addMasked(name, what, prettyJson(scrubber_.value(jsonable(document))) + "\n");
}

void BundleContent::addText(const std::string& name, const std::string& what, std::string_view text) {
  addMasked(name, what, scrubber_.text(text));
}

void BundleContent::addMasked(const std::string& name, const std::string& what, std::string text) {
  TKSDictionary counts = scrubber_.takeCounts();
  std::string toldOf = scrubber_.text(what);
  scrubber_.takeCounts();
  entries_.push_back({name, std::move(toldOf), std::move(text), std::move(counts)});
}

void BundleContent::miss(const std::string& what, const std::string& why) {
  missing_.append(TKSDictionary{{"what", scrubber_.text(what)}, {"why", scrubber_.text(why)}});
  scrubber_.takeCounts();
}

TKSDictionary BundleContent::manifest() const {
  TKSArray entries;
  for (const BundleEntry& entry : entries_) {
    entries.append(TKSDictionary{
        {"name", entry.name}, {"what", entry.what}, {"bytes", entry.text.size()}, {"masked", entry.masked}});
  }
  return {{"format", "tksinterface support bundle"},
          {"formatVersion", 1},
          {"library", TKS_PROJECT_VERSION},
          {"time", momentText(platform::clock().secondsSince1970())},
          {"days", days_},
          {"entries", entries},
          {"missing", missing_}};
}

}  // namespace tks::ctl
