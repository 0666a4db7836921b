#pragma once

#include <new>

#include "codesign/Codesign.h"

namespace tks::codesign {

/// The outcome that a status stands for.
Outcome outcomeOf(Status status);

/// Runs something: the one place where what is thrown inside of the engine becomes an outcome.
template <class Work>
Outcome attempt(Work work) {
  try {
    work();
    return {};
  } catch (const Failure& failure) {
    return outcomeOf(failure.status);
  } catch (const std::bad_alloc&) {
    return outcomeOf(status::kNotEnoughMemory);
  } catch (...) {
    return outcomeOf(status::kInternalError);
  }
}

}  // namespace tks::codesign
