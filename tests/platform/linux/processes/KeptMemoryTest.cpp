#include "platform/linux/processes/kept_memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "platform/platform.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/ProcessTable.h"
#include "tests/support/Sanitized.h"

namespace {

using tks::gnulinux::KeptMemory;
using tks::test::residentBytes;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

std::span<char> filled(std::size_t size) {
  const std::span<char> memory = KeptMemory::take(size);
  std::memset(memory.data(), 'x', memory.size());
  return memory;
}

TEST(KeptMemory, ServesTheNextWhoWantsAboutAsMuch) {
  const std::span<char> first = filled(20 * kMebibyte);
  ASSERT_GE(first.size(), 20 * kMebibyte);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first.data()) % (2 * kMebibyte), 0u);
  KeptMemory::giveBack(first.data(), first.size());
  const std::span<char> second = filled(16 * kMebibyte);
  EXPECT_EQ(second.data(), first.data());
  const std::span<char> third = filled(16 * kMebibyte);
  EXPECT_NE(third.data(), second.data());
  KeptMemory::giveBack(second.data(), second.size());
  KeptMemory::giveBack(third.data(), third.size());
  const std::span<char> small = filled(kMebibyte);
  EXPECT_LE(small.size(), 2 * kMebibyte) << "much memory is not kept for little";
  KeptMemory::giveBack(small.data(), small.size());
  KeptMemory::drop();
}

TEST(KeptMemory, IsNoneWhenNobodyHasSoMuch) {
  EXPECT_TRUE(KeptMemory::take(SIZE_MAX).empty());
  EXPECT_TRUE(KeptMemory::take(SIZE_MAX / 4).empty());
}

TEST(KeptMemory, OfLongTextsGoesBackWhenTheProcessGivesMemoryBack) {
  TKS_IN_FRESH_PROCESS();
  if (tks::test::kSanitized) GTEST_SKIP() << "sanitizers keep what was freed";
  std::string text = "[";
  while (text.size() < 12 * kMebibyte) text += "1,2,3,4,5,6,7,8,9,";
  text.back() = ']';
  const std::size_t before = residentBytes();
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(tks::platform::json().parse(text, nullptr).isArray());
  tks::platform::thisProcess().giveMemoryBack();
  EXPECT_LT(residentBytes(), before + 4 * kMebibyte);
}

}  // namespace
