#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/tksctl/frame/command.h"

namespace tks::ctl {

/// Reads the command line, runs the command, and returns the exit code of the process. Throws nothing.
int run(const Application& application, int count, char** words);

/// The whole application for those who describe it: with all options, nothing read. For man page and completions.
class Description {
 public:
  explicit Description(const Application& application);
  ~Description();
  const Application& application() const { return application_; }
  const CLI::App& app() const;

 private:
  struct Content;
  const Application& application_;
  std::unique_ptr<Content> content_;
};

}  // namespace tks::ctl
