#pragma once

#include <gtest/gtest.h>

#include "foundation/Options.h"

namespace tks::test {

/// Options of a test's own in place of the process's, which stay as they are, for a scope. Nothing has begun with them.
class ScopedOptions {
 public:
  explicit ScopedOptions(const TKSOptions& options = {}) : before_(OptionsInForce::slot().exchange(&own_)) {
    set(options);
  }
  ~ScopedOptions() { OptionsInForce::slot() = before_; }
  ScopedOptions(const ScopedOptions&) = delete;
  ScopedOptions& operator=(const ScopedOptions&) = delete;

  void set(const TKSOptions& options) {
    TKSError error;
    EXPECT_TRUE(own_.set(options, &error)) << error.localizedDescription;
  }

 private:
  OptionsInForce own_;
  OptionsInForce* const before_;
};

}  // namespace tks::test
