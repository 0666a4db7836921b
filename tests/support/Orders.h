#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace tks::test {

/// Every order of what can happen, one after the other:
///
///   Orders orders;
///   do {
///     for (int step = 0; step < 6; ++step) perform(possible().at(orders.choose(possible().size())));
///   } while (orders.next());
class Orders {
 public:
  /// The choice at this step of the order. The same choices before it lead to the same width.
  std::size_t choose(std::size_t width) {
    if (step_ == steps_.size()) steps_.push_back({0, width});
    EXPECT_EQ(steps_[step_].width, width) << "not the same again";
    return steps_[step_++].choice;
  }
  /// Goes on to the next order; false after the last one.
  bool next() {
    step_ = 0;
    ++count_;
    while (!steps_.empty() && ++steps_.back().choice == steps_.back().width) steps_.pop_back();
    return !steps_.empty();
  }
  /// Orders gone through so far.
  std::size_t count() const { return count_; }

 private:
  struct Step {
    std::size_t choice;
    std::size_t width;
  };
  std::vector<Step> steps_;
  std::size_t step_ = 0;
  std::size_t count_ = 0;
};

}  // namespace tks::test
