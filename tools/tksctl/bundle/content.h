#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "tools/tksctl/bundle/scrubber.h"
#include "tools/tksctl/frame/command.h"

namespace tks::ctl {

/// What is asked for.
struct BundleWishes {
  std::string path;
  std::string launcher;
  /// Files and folders that the user names.
  std::vector<std::string> logs;
  std::vector<std::string> recordings;
  std::vector<std::string> hidden;
  int days = 7;
  bool isPreview = false;
  bool withoutStart = false;
};

/// A file of the bundle, masked.
struct BundleEntry {
  std::string name;
  /// For the manifest, in few words.
  std::string what;
  std::string text;
  /// How often each kind was masked in it.
  TKSDictionary masked;
};

/// What is put together for somebody who supports users. Nothing that fails keeps the rest from being collected: it is
/// noted as missing, with the reason.
class BundleContent {
 public:
  explicit BundleContent(const BundleWishes& wishes);

  Scrubber& scrubber() { return scrubber_; }
  /// Adds a document, or a text; both are masked here.
  void addDocument(const std::string& name, const std::string& what, const TKSValue& document);
  void addText(const std::string& name, const std::string& what, std::string_view text);
  /// Adds what was masked already with this content's scrubber.
  void addMasked(const std::string& name, const std::string& what, std::string text);
  void miss(const std::string& what, const std::string& why);

  const std::vector<BundleEntry>& entries() const { return entries_; }
  const TKSArray& missing() const { return missing_; }
  /// What is in it, what is not, and what was masked.
  TKSDictionary manifest() const;

 private:
  int days_;
  Scrubber scrubber_;
  std::vector<BundleEntry> entries_;
  TKSArray missing_;
};

// The parts, in the order in which they are collected.

void collectVersions(BundleContent& content);
void collectPreferences(BundleContent& content);
void collectSignature(BundleContent& content, const BundleWishes& wishes);
void collectFolders(BundleContent& content);
/// The doctor's report, and the library's log while it was made.
void collectDoctor(BundleContent& content, const BundleWishes& wishes, Context& context);
void collectLogs(BundleContent& content, const BundleWishes& wishes);
void collectRecordings(BundleContent& content, const BundleWishes& wishes);

}  // namespace tks::ctl
