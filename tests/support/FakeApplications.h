#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

// The doubles of the running applications.

/// No application runs, none can be started and none ended. A test overrides what it plays.
class NoApplications : public platform::RunningApplications {
 public:
  std::optional<TKSRunningApplication> find(std::int32_t) override { return std::nullopt; }
  std::vector<TKSRunningApplication> list() override { return {}; }
  bool forceTerminate(const TKSRunningApplication&) override { return false; }
  bool terminate(const TKSRunningApplication&) override { return false; }
  std::optional<TKSRunningApplication> launch(std::string_view, const std::vector<std::string>&, TKSError*) override {
    return std::nullopt;
  }
  bool hasLastUsedDate(std::string_view) override { return false; }
  void terminateThisApplication() override {}
};

/// The applications of the system, but only those of this test, in bundles at or below certain places: other tests may
/// be running launchers of their own, and nobody else's is ended.
class OwnApplications final : public platform::RunningApplications {
 public:
  explicit OwnApplications(std::vector<std::string> places) : places_(std::move(places)) {}
  /// No process can be ended by force.
  bool refuses = false;
  /// How often this process was to be ended.
  int terminated = 0;

  std::optional<TKSRunningApplication> find(std::int32_t pid) override { return replaced_.before().find(pid); }
  std::vector<TKSRunningApplication> list() override {
    std::vector<TKSRunningApplication> found = replaced_.before().list();
    std::erase_if(found, [&](const TKSRunningApplication& one) { return !isOwn(one.bundlePath); });
    return found;
  }
  bool forceTerminate(const TKSRunningApplication& application) override {
    return !refuses && replaced_.before().forceTerminate(application);
  }
  bool terminate(const TKSRunningApplication& application) override {
    return replaced_.before().terminate(application);
  }
  std::optional<TKSRunningApplication> launch(std::string_view path, const std::vector<std::string>& arguments,
                                              TKSError* error) override {
    return replaced_.before().launch(path, arguments, error);
  }
  bool hasLastUsedDate(std::string_view path) override { return replaced_.before().hasLastUsedDate(path); }
  void terminateThisApplication() override { ++terminated; }

 private:
  bool isOwn(std::string_view bundle) const {
    return std::ranges::any_of(places_, [&](const std::string& place) {
      return bundle == place || (bundle.starts_with(place) && bundle[place.size()] == '/');
    });
  }

  std::vector<std::string> places_;
  platform::Replaced<platform::RunningApplications> replaced_{*this};
};

/// Running applications that a test puts there, and what is asked of them.
class PlayedApplications final : public platform::RunningApplications {
 public:
  /// What `find` returns for a process, look by look; the last one stays. Without a row: the listed one, until it has
  /// been terminated and does not refuse.
  std::map<std::int32_t, std::vector<std::optional<TKSRunningApplication>>> looks;
  std::vector<TKSRunningApplication> listed;
  /// Processes that refuse to be terminated.
  std::vector<std::int32_t> refusing;
  /// What `launch` results in, call by call: an error's text, or "" for success.
  std::vector<std::string> launches;

  /// Nothing can be looked up.
  bool blind = false;
  std::function<void()> onLook;

  std::vector<std::int32_t> terminated;
  std::vector<std::vector<std::string>> launchedWith;

  bool canLookUp(TKSError* error) override {
    if (blind && error != nullptr) *error = TKSError{"NSPOSIXErrorDomain", 2, "no table"};
    return !blind;
  }
  std::optional<TKSRunningApplication> find(std::int32_t pid) override {
    if (onLook) onLook();
    const auto found = looks.find(pid);
    if (found == looks.end()) return stillListed(pid);
    const std::optional<TKSRunningApplication> answer = found->second.front();
    if (found->second.size() > 1) found->second.erase(found->second.begin());
    return answer;
  }
  std::vector<TKSRunningApplication> list() override { return listed; }
  bool forceTerminate(const TKSRunningApplication& application) override {
    terminated.push_back(application.processIdentifier);
    return !refuses(application.processIdentifier);
  }
  bool terminate(const TKSRunningApplication&) override { return false; }
  std::optional<TKSRunningApplication> launch(std::string_view bundlePath, const std::vector<std::string>& arguments,
                                              TKSError* error) override {
    const std::string failure = launches.at(launchedWith.size());
    launchedWith.push_back(arguments);
    if (failure.empty()) return TKSRunningApplication{77, "id", "Name", std::string(bundlePath), 1};
    if (error != nullptr) *error = TKSError{"Workspace", 5, failure};
    return std::nullopt;
  }
  bool hasLastUsedDate(std::string_view) override { return false; }
  void terminateThisApplication() override {}

 private:
  bool refuses(std::int32_t pid) const { return std::ranges::find(refusing, pid) != refusing.end(); }
  std::optional<TKSRunningApplication> stillListed(std::int32_t pid) const {
    const bool isEnded = std::ranges::find(terminated, pid) != terminated.end() && !refuses(pid);
    const auto found = std::ranges::find(listed, pid, &TKSRunningApplication::processIdentifier);
    return isEnded || found == listed.end() ? std::nullopt : std::optional(*found);
  }

  platform::Replaced<platform::RunningApplications> replaced_{*this};
};

}  // namespace tks::test
