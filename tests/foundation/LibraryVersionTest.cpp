#include <gtest/gtest.h>

#include <string>

#include <tksinterface/TKSVersion.h>

#include "platform/platform.h"

namespace {

constexpr std::int32_t kMajor = TKS_VERSION_MAJOR;
constexpr std::int32_t kMinor = TKS_VERSION_MINOR;
constexpr std::int32_t kPatch = TKS_VERSION_PATCH;

TEST(LibraryVersion, IsTheHeadersAndTheBundles) {
  EXPECT_EQ(TKSVersion::number(), kMajor * 1000000 + kMinor * 1000 + kPatch);
  EXPECT_EQ(TKSVersion::text(), std::to_string(kMajor) + "." + std::to_string(kMinor) + "." + std::to_string(kPatch));
  EXPECT_EQ(TKSVersion::text(), tks::platform::bundles().libraryVersion());
  EXPECT_EQ(TKSVersion::text().data()[TKSVersion::text().size()], '\0');
}

TEST(LibraryVersion, GrowsWithEachOfItsParts) {
  EXPECT_LT(TKS_VERSION_NUMBER(0, 1, 9), TKS_VERSION_NUMBER(0, 2, 0));
  EXPECT_LT(TKS_VERSION_NUMBER(0, 999, 999), TKS_VERSION_NUMBER(1, 0, 0));
}

TEST(LibraryVersion, SuitsHeadersOfItsOwnLineThatAreNotNewer) {
  EXPECT_TRUE(TKSVersion::isCompatible());
  EXPECT_TRUE(TKSVersion::isCompatible(TKS_VERSION_NUMBER(kMajor, kMinor, 0)));
  EXPECT_FALSE(TKSVersion::isCompatible(TKS_VERSION_NUMBER(kMajor, kMinor, kPatch + 1)));
  EXPECT_FALSE(TKSVersion::isCompatible(TKS_VERSION_NUMBER(kMajor, kMinor + 1, 0)));
  EXPECT_FALSE(TKSVersion::isCompatible(TKS_VERSION_NUMBER(kMajor + 1, kMinor, kPatch)));
}

TEST(LibraryVersion, OfAnotherMinorVersionSuitsNobodyBeforeTheFirstMajorOne) {
  if (kMinor == 0) GTEST_SKIP() << "there was none";
  EXPECT_EQ(TKSVersion::isCompatible(TKS_VERSION_NUMBER(kMajor, kMinor - 1, 0)), kMajor > 0);
}

}  // namespace
