#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

namespace tks::test {

/// Runs something on a thread of its own with a small stack, and waits for it.
inline void onSmallStack(std::function<void()> work, std::size_t stack = 256 * 1024) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, stack), 0);
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  const int error = pthread_create(&thread, &attributes, run, &work);
  pthread_attr_destroy(&attributes);
  ASSERT_EQ(error, 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
}

}  // namespace tks::test
