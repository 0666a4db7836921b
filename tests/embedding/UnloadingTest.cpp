#include <dlfcn.h>
#include <gtest/gtest.h>

#include "tests/support/FreshProcess.h"
#include "tests/support/ProcessState.h"

// A host that loads the library at run time and lets go of it again.

namespace {

using tks::test::threadCount;
using tks::test::waitUntil;

/// Whether a library is in this process, loaded or left.
bool isMapped(const char* path) {
  void* const handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

bool loadUseAndUnload() {
  void* const plugin = dlopen(TKS_PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    ADD_FAILURE() << dlerror();
    return false;
  }
  const auto use = reinterpret_cast<bool (*)()>(dlsym(plugin, "useLibrary"));
  const bool used = use != nullptr && use();
  EXPECT_EQ(dlclose(plugin), 0);
  return used;
}

TEST(Unloading, AHostThatLetsGoOfTheLibraryIsNotPulledFromUnderItsThreads) {
  TKS_IN_FRESH_PROCESS();
  ASSERT_FALSE(isMapped(TKS_SHARED_LIBRARY));
  const std::size_t threads = threadCount();
  ASSERT_TRUE(loadUseAndUnload());
  EXPECT_GT(threadCount(), threads) << "nothing is left that could run into unmapped memory";
  EXPECT_TRUE(isMapped(TKS_SHARED_LIBRARY));
  // The thread goes through the library's code once more when it ends.
  EXPECT_TRUE(waitUntil([&] { return threadCount() == threads; }, std::chrono::seconds(30)));
}

TEST(Unloading, TheLibraryMayBeLoadedAgain) {
  TKS_IN_FRESH_PROCESS();
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(loadUseAndUnload());
  const auto descriptors = tks::test::openDescriptors();
  const auto children = tks::test::children();
  ASSERT_TRUE(loadUseAndUnload());
  EXPECT_EQ(tks::test::openDescriptors(), descriptors);
  EXPECT_EQ(tks::test::children(), children);
}

}  // namespace
