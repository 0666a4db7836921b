#include <gtest/gtest.h>

#include "codesign/container/code_directory.h"
#include "codesign/container/signature_components.h"
#include "codesign/container/status.h"
#include "codesign/container/super_blob.h"
#include "tests/codesign/Fixtures.h"

// The parts of a signature by themselves: numbers, names, kinds and bounds.

namespace {

using tks::codesign::ByteSource;

/// The status of what refuses; 0 when it does not.
template <typename Work>
std::int32_t statusFrom(const Work& work) {
  try {
    work();
    return 0;
  } catch (const tks::codesign::Failure& failure) {
    return failure.status;
  }
}

TEST(SignatureParts, StandUnderTheFormatsNumbersAndNames) {
  namespace slot = tks::codesign::slot;
  const std::pair<std::uint32_t, const char*> parts[] = {{0, "CodeDirectory"},
                                                         {2, "CodeRequirements"},
                                                         {3, "CodeResources"},
                                                         {4, "CodeTopDirectory"},
                                                         {5, "CodeEntitlements"},
                                                         {6, "CodeRepSpecific"},
                                                         {7, "CodeEntitlementDER"},
                                                         {8, "LaunchConstraintSelf"},
                                                         {9, "LaunchConstraintParent"},
                                                         {11, "LibraryConstraint"},
                                                         {10, "LaunchConstraintResponsible"},
                                                         {0x1000, "CodeRequirements-1"},
                                                         {0x1001, "CodeRequirements-2"},
                                                         {0x1002, "CodeRequirements-3"},
                                                         {0x1003, "CodeRequirements-4"},
                                                         {0x1004, "CodeRequirements-5"},
                                                         {0x10000, "CodeSignature"},
                                                         {1, ""},
                                                         {12, ""},
                                                         {0x1005, ""}};
  for (const auto& [number, name] : parts) EXPECT_EQ(tks::codesign::componentName(number), name) << number;
  EXPECT_EQ(slot::kInfoPlist, 1u);
  EXPECT_EQ(slot::kEntitlements, 5u);
  EXPECT_EQ(slot::kEntitlementsDer, 7u);
}

TEST(SignatureParts, AreBlobsOfTheKindThatFillsTheirSlot) {
  const auto isBlob = [](std::uint32_t slot, std::uint32_t kind) {
    TKSData blob;
    tks::signing::append32(blob, kind);
    tks::signing::append32(blob, 8);
    return tks::codesign::isBlobFor(slot, tks::codesign::ByteSource(blob));
  };
  EXPECT_TRUE(isBlob(2, 0xfade0c01));
  EXPECT_TRUE(isBlob(5, 0xfade7171));
  EXPECT_TRUE(isBlob(7, 0xfade7172));
  for (const std::uint32_t slot : {8u, 9u, 10u, 11u}) EXPECT_TRUE(isBlob(slot, 0xfade8181)) << slot;
  for (const std::uint32_t slot : {1u, 3u, 6u, 7u, 12u}) EXPECT_FALSE(isBlob(slot, 0xfade8181)) << slot;
}

TEST(ByteSources, AreReadUpToTheLimitAndNoFurther) {
  const TKSData bytes = {1, 2, 3};
  EXPECT_EQ(tks::codesign::ByteSource(bytes).all(3), bytes);
  EXPECT_EQ(tks::codesign::ByteSource(bytes).all(2), std::nullopt);
}

TEST(SignatureParts, AreIndexedInAnAreaThatHoldsTheWholeIndex) {
  const auto statusOfIndex = [](std::uint32_t length, std::uint32_t count, std::size_t size) {
    TKSData area;
    for (const std::uint32_t number : {0xfade0cc0u, length, count}) tks::signing::append32(area, number);
    area.resize(size);
    return statusFrom([&] { tks::codesign::SuperBlob super{ByteSource(area)}; });
  };
  EXPECT_EQ(statusOfIndex(12, 0, 12), 0);
  EXPECT_EQ(statusOfIndex(12, 0, 100), 0) << "an area may be larger";
  EXPECT_EQ(statusOfIndex(13, 0, 12), -67045);
  EXPECT_EQ(statusOfIndex(12, 1, 100), -67045) << "no room for an entry";
  EXPECT_EQ(statusOfIndex(12, 0, 11), -67045);
}

TEST(CodeDirectories, NameTheirTeamFromTheVersionOnThatHasOne) {
  tks::signing::DirectoryPlan plan;
  plan.identifier = "a";
  plan.team = "T4RV0K0VRA";
  for (const std::uint32_t version : {0x20200u, 0x20300u, 0x20400u, 0x20500u}) {
    plan.version = version;
    const TKSData blob = tks::signing::makeDirectory(plan, TKSData(100));
    EXPECT_EQ(tks::codesign::CodeDirectory(ByteSource(blob)).team(), "T4RV0K0VRA") << version;
  }
}

TEST(CodeDirectories, AreNoShorterThanTheFieldsOfTheirVersion) {
  const std::pair<std::uint32_t, std::size_t> rows[] = {{0x20001, 44}, {0x20100, 48}, {0x20200, 52},
                                                        {0x20300, 64}, {0x20400, 88}, {0x20500, 96}};
  for (const auto& [version, size] : rows) {
    const auto statusOfSize = [&, version = version](std::size_t count) {
      TKSData blob(count);
      tks::signing::store32(blob, 0, 0xfade0c02);
      tks::signing::store32(blob, 4, static_cast<std::uint32_t>(count));
      tks::signing::store32(blob, 8, version);
      tks::signing::store32(blob, 20, 40);  // an empty identifier; no team, no code, no hashes
      blob[36] = 32;
      blob[37] = static_cast<std::uint8_t>(tks::codesign::HashType::sha256);
      return statusFrom([&] { tks::codesign::CodeDirectory directory{ByteSource(blob)}; });
    };
    EXPECT_EQ(statusOfSize(size), 0) << version;
    EXPECT_EQ(statusOfSize(size - 1), -67061) << version;
  }
}

TEST(CodeDirectories, HavePagesOfASizeThatANumberCanHold) {
  tks::signing::DirectoryPlan plan;
  plan.identifier = "a";
  const TKSData whole = tks::signing::makeDirectory(plan, TKSData(100));
  EXPECT_EQ(statusFrom([&] { tks::codesign::CodeDirectory directory{ByteSource(whole)}; }), 0);
  for (const int log : {64, 65, 255}) {
    TKSData odd = whole;
    odd[39] = static_cast<std::uint8_t>(log);
    EXPECT_EQ(statusFrom([&] { tks::codesign::CodeDirectory directory{ByteSource(odd)}; }), -67061) << log;
  }
}

}  // namespace
