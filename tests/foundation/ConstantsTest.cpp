#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <tksinterface/tksinterface.h>

#include "tests/support/BuildPaths.h"

// The catalogue as hosts see it: every constant is looked up by its plain name in the shared library and compared with
// the table in tests/data/constants.tsv.

namespace {

struct Row {
  std::string type;
  std::string name;
  std::string value;
};

std::vector<Row> table() {
  std::vector<Row> rows;
  std::ifstream file(tks::test::testData("constants.tsv"));
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line.front() == '#') continue;
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first + 1);
    Row row{line.substr(0, first), line.substr(first + 1, second - first - 1), line.substr(second + 1)};
    if (row.value.ends_with("\\n")) row.value.replace(row.value.size() - 2, 2, "\n");
    rows.push_back(row);
  }
  return rows;
}

class Library {
 public:
  Library() : handle_(dlopen(TKS_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  const void* find(const std::string& name) const { return dlsym(handle_, name.c_str()); }
  bool isLoaded() const { return handle_ != nullptr; }

 private:
  void* handle_;
};

template <class Number>
std::string printed(const void* address) {
  std::ostringstream text;
  text << std::setprecision(15) << *static_cast<const Number*>(address);
  return text.str();
}

std::string valueAt(const void* address, const std::string& type) {
  if (type == "text") return std::string(*static_cast<const std::string_view*>(address));
  if (type == "int32") return printed<std::int32_t>(address);
  if (type == "int64") return printed<std::int64_t>(address);
  const std::string real = printed<double>(address);
  return real.find('.') == std::string::npos ? real + ".0" : real;
}

TEST(Constants, EveryConstantOfTheCatalogueIsExportedWithItsValue) {
  const Library library;
  ASSERT_TRUE(library.isLoaded()) << dlerror();
  const std::vector<Row> rows = table();
  ASSERT_EQ(rows.size(), 359u);
  for (const Row& row : rows) {
    const void* address = library.find(row.name);
    ASSERT_NE(address, nullptr) << row.name;
    EXPECT_EQ(valueAt(address, row.type), row.value) << row.name;
  }
}

TEST(Constants, TextsAreTerminatedAfterTheirView) {
  const Library library;
  ASSERT_TRUE(library.isLoaded()) << dlerror();
  for (const Row& row : table()) {
    if (row.type != "text") continue;
    const auto& text = *static_cast<const std::string_view*>(library.find(row.name));
    EXPECT_EQ(text.data()[text.size()], '\0') << row.name;
  }
}

/// Whether an object may only be looked at.
template <class Object>
constexpr bool kIsConstant =
    std::is_const_v<std::remove_reference_t<Object>> && !std::is_assignable_v<Object, std::remove_cvref_t<Object>>;

struct Constancy {
  std::string name;
  bool isConstant;
};

const Constancy kConstancies[] = {
#define TKS_CONSTANT(name) {#name, kIsConstant<decltype((name))>},
#include "constants.inc"
#undef TKS_CONSTANT
};

TEST(Constants, CannotBeAssignedExceptForTheLargestMessageSize) {
  EXPECT_EQ(std::size(kConstancies), table().size());
  for (const Constancy& constant : kConstancies) {
    EXPECT_EQ(constant.isConstant, constant.name != "tks_max_msg_size") << constant.name;
  }
}

TEST(Constants, TheLargestMessageSizeCanBeChanged) {
  const Library library;
  ASSERT_TRUE(library.isLoaded()) << dlerror();
  auto* size = static_cast<std::int64_t*>(const_cast<void*>(library.find("tks_max_msg_size")));
  ASSERT_NE(size, nullptr);
  const std::int64_t before = *size;
  *size = 1;
  EXPECT_EQ(*size, 1);
  *size = before;
}

}  // namespace
