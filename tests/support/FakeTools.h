#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

/// The double of the system's tools, for a scope. A test says what a tool answers; a tool that it says nothing of runs
/// as before. Notes what is run, on any thread.
class FakeTools : public platform::SystemTools {
 public:
  using Answer = std::function<platform::ToolResult(const platform::ToolRequest&)>;
  using Act = std::function<void(const platform::ToolRequest&)>;

  FakeTools() : others_(&replaced_.before()) {}
  /// `others` run what the test says nothing of.
  explicit FakeTools(platform::SystemTools& others) : others_(&others) {}

  /// What a tool answers from now on, in place of running.
  void play(platform::Tool tool, Answer answer) { answers_[tool] = std::move(answer); }
  /// What all the others answer.
  void playOthers(Answer answer) { othersAnswer_ = std::move(answer); }
  /// How long each may take, whatever is asked for.
  void limitTime(std::chrono::seconds limit) { limit_ = limit; }

  /// Done before and after a tool runs or answers.
  std::map<platform::Tool, Act> before;
  std::map<platform::Tool, Act> after;

  platform::ToolResult run(const platform::ToolRequest& request) override {
    note(request);
    if (const auto act = before.find(request.tool); act != before.end()) act->second(request);
    platform::ToolResult result = answerTo(request);
    if (const auto act = after.find(request.tool); act != after.end()) act->second(request);
    return result;
  }

  /// What was run, in order. False: nothing is noted.
  std::vector<platform::ToolRequest> requests;
  bool notes = true;
  std::size_t runs(platform::Tool tool) const {
    const std::scoped_lock lock(mutex_);
    std::size_t count = 0;
    for (const platform::ToolRequest& request : requests) count += request.tool == tool ? 1 : 0;
    return count;
  }
  std::size_t runs() const {
    const std::scoped_lock lock(mutex_);
    return requests.size();
  }

  /// The result of a tool that has printed something and ended by itself.
  static platform::ToolResult printed(std::string output) {
    return {.started = true, .output = std::move(output), .exitCode = 0, .error = {}};
  }
  /// The result of a tool that is missing.
  static platform::ToolResult unstarted() {
    return {.started = false,
            .output = "",
            .exitCode = -1,
            .error = {"NSPOSIXErrorDomain", 2, "run \"/usr/bin/a\": No such file or directory"}};
  }

 protected:
  /// In place of the tools that were in force; not owned.
  void useOthers(platform::SystemTools& others) { others_ = &others; }

 private:
  void note(const platform::ToolRequest& request) {
    if (!notes) return;
    const std::scoped_lock lock(mutex_);
    requests.push_back(request);
  }
  platform::ToolResult answerTo(const platform::ToolRequest& request) {
    if (const auto answer = answers_.find(request.tool); answer != answers_.end()) return answer->second(request);
    if (othersAnswer_) return othersAnswer_(request);
    if (!limit_) return others_->run(request);
    platform::ToolRequest limited = request;
    limited.timeLimit = *limit_;
    return others_->run(limited);
  }

  std::map<platform::Tool, Answer> answers_;
  Answer othersAnswer_;
  std::optional<std::chrono::seconds> limit_;
  mutable std::mutex mutex_;  // guards the requests
  platform::Replaced<platform::SystemTools> replaced_{*this};
  platform::SystemTools* others_;
};

}  // namespace tks::test
