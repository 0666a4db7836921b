#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PropertyListSamples.h"
#include "tests/support/TemporaryFolder.h"

// What is written here other programs read, and the other way round.

namespace {

using namespace tks::test;
using Format = tks::platform::PropertyLists::Format;

constexpr int kLists = 60;

/// Reads every list of the folder named in its argument and writes it anew, in each form. The writer of the XML form
/// turns carriage returns into line feeds, so that has to be made good.
constexpr const char* kPythonScript = R"(
import pathlib, plistlib, sys
plistlib._escape = lambda text: text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;").replace("\r", "&#13;")
for path in sorted(pathlib.Path(sys.argv[1]).glob("*.plist")):
    value = plistlib.loads(path.read_bytes())
    path.with_suffix(".from-xml").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_XML))
    path.with_suffix(".from-binary").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))
)";

class PropertyListTools : public testing::TestWithParam<Format> {
 protected:
  void SetUp() override {
    std::mt19937 random(GetParam() == Format::xml ? 1 : 2);
    for (int i = 0; i < kLists; ++i) {
      written_.push_back(plist::randomDictionary(random, 4));
      const std::optional<TKSData> content =
          tks::platform::propertyLists().serialize(written_.back(), GetParam(), nullptr);
      ASSERT_TRUE(content);
      writeFile(path(i, ".plist"), std::string(content->begin(), content->end()));
    }
  }

  std::string path(int number, const char* suffix) const { return folder_ / (std::to_string(number) + suffix); }

  void expectSame(int number, const char* suffix) {
    TKSError error;
    const auto read = tks::platform::propertyLists().readDictionary(path(number, suffix), &error);
    ASSERT_TRUE(read) << error.description() << "\n" << contentOf(path(number, suffix));
    const TKSDictionary& written = written_[static_cast<std::size_t>(number)];
    ASSERT_EQ(*read, written) << read->description() << "\nbut it was " << written.description();
  }

  TemporaryFolder folder_;
  std::vector<TKSDictionary> written_;
};

TEST_P(PropertyListTools, PythonReadsAndWritesTheSame) {
  constexpr const char* kPython = "/usr/bin/python3";
  if (::access(kPython, X_OK) != 0) GTEST_SKIP() << "no Python here";
  ChildProcess python = ChildProcess::run(kPython, {"-c", kPythonScript, folder_.path()});
  ASSERT_EQ(python.wait(), 0) << python.output();
  for (int i = 0; i < kLists; ++i) {
    expectSame(i, ".from-xml");
    expectSame(i, ".from-binary");
  }
}

TEST_P(PropertyListTools, PlistutilReadsAndWritesTheSame) {
  constexpr const char* kPlistutil = "/usr/bin/plistutil";
  if (::access(kPlistutil, X_OK) != 0) GTEST_SKIP() << "no plistutil here";
  for (int i = 0; i < kLists; ++i) {
    for (const char* form : {"xml", "bin"}) {
      const std::string result = path(i, ".converted");
      ChildProcess plistutil = ChildProcess::run(kPlistutil, {"-i", path(i, ".plist"), "-o", result, "-f", form});
      ASSERT_EQ(plistutil.wait(), 0);
      expectSame(i, ".converted");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, PropertyListTools, testing::Values(Format::xml, Format::binary),
                         [](const auto& form) { return form.param == Format::xml ? "Xml" : "Binary"; });

}  // namespace
