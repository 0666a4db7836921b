#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "codesign/Codesign.h"
#include "codesign/container/sha256_blocks.h"
#include "tests/codesign/Fixtures.h"
#include "tests/support/ScopedValue.h"

// Of many files, which are hashed on several threads and side by side, each one counts.

namespace {

namespace fs = std::filesystem;
using namespace tks::test;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::codesign::Code;
using tks::codesign::Depth;
using tks::codesign::HashType;
using tks::codesign::Outcome;
using tks::codesign::Sha256Blocks;
using tks::codesign::sha256Blocks;

class SealedFiles : public ::testing::Test {
 protected:
  /// An application with so many files that every thread has all its places taken, most of them small, two of them
  /// hashed alone, and some of exactly what is read at a time.
  std::string makeAppOfManyFiles(const std::vector<HashType>& types) {
    const std::string app = makeApp(folder / "A.app", elfProgram());
    for (std::size_t i = 0; i < kFiles; ++i) {
      const std::size_t size = i % 100 == 50 ? (1u << 20) + i : i % 40 == 7 ? 16384 * (i % 3) : i * 37 % 6000;
      writeFile(fileAt(i), std::string(size, static_cast<char>('a' + i % 26)));
    }
    signAs(app, "maker", [&](tks::signing::SigningOptions& options) { options.hashTypes = types; });
    return app;
  }

  std::string fileAt(std::size_t i) const { return folder / ("A.app/Contents/" + nameOf(i)); }
  static std::string nameOf(std::size_t i) { return "Resources/many/" + std::to_string(1000 + i); }

  static Outcome check(const std::string& app) { return Code::open(app)->verify(Depth::plain); }

  static constexpr std::size_t kFiles = 280;
  TemporaryFolder folder;
};

TEST_F(SealedFiles, AreComparedEachByItselfWhateverTheyAreHashedWith) {
  std::vector<Sha256Blocks> functions{nullptr};
  for (const Sha256Blocks function : tks::codesign::sha256BlocksHere()) functions.push_back(function);
  const std::vector<HashType> lists[] = {{HashType::sha256},
                                         {HashType::sha1, HashType::sha256},
                                         {HashType::sha1, HashType::sha256, HashType::sha384},
                                         {HashType::sha384}};
  for (const auto& types : lists) {
    const std::string app = makeAppOfManyFiles(types);
    for (const Sha256Blocks function : functions) {
      const ScopedValue<Sha256Blocks> inForce{sha256Blocks(), function};
      EXPECT_EQ(check(app).status, 0) << types.size();
    }
    flip(fileAt(9), 300);
    append(fileAt(150), "x");
    append(fileAt(47), "x");
    fs::resize_file(fileAt(279), fs::file_size(fileAt(279)) - 1);
    fs::remove(fileAt(100));
    for (const Sha256Blocks function : functions) {
      const ScopedValue<Sha256Blocks> inForce{sha256Blocks(), function};
      const Outcome found = check(app);
      EXPECT_EQ(found.status, -67054);
      EXPECT_THAT(found.altered, ElementsAre(nameOf(9), nameOf(47), nameOf(150), nameOf(279))) << types.size();
      EXPECT_THAT(found.missing, ElementsAre(nameOf(100)));
      EXPECT_THAT(found.added, IsEmpty());
    }
    fs::remove_all(app);
  }
}

TEST_F(SealedFiles, AreAllSeenOneByOneInTheirPlace) {
  const std::string app = makeAppOfManyFiles({HashType::sha256});
  for (std::size_t i = 0; i < kFiles; i += 23) {
    append(fileAt(i), "x");
    EXPECT_THAT(check(app).altered, ElementsAre(nameOf(i)));
    fs::resize_file(fileAt(i), fs::file_size(fileAt(i)) - 1);
    EXPECT_EQ(check(app).status, 0);
  }
}

}  // namespace
