#include "foundation/values/LinkWalk.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using tks::followPath;
using tks::LinkEnd;
using tks::LinkWalk;
using tks::pathComponents;

/// A walk, and how it ends. The folder it begins in is "top/a"; "top" may not be left.
struct Walk {
  const char* path;
  LinkEnd end;
};
constexpr Walk kWalks[] = {
    {"b", LinkEnd::inside},
    {"./b//c/", LinkEnd::inside},
    {"..", LinkEnd::inside},
    {"../b/../c", LinkEnd::inside},
    {"../..", LinkEnd::outside},
    {"../../top/a", LinkEnd::outside},  // it leaves, even if it comes back
    {"b/../../../x", LinkEnd::outside},
    {"/top/a", LinkEnd::outside},
    {"", LinkEnd::outside},
    {"up", LinkEnd::inside},           // to "top/"
    {"up/..", LinkEnd::outside},       // out from where the link leads
    {"up/a/up/a/b", LinkEnd::inside},  // over one link more than once
    {"b/../up/../x", LinkEnd::outside},
    {"root", LinkEnd::outside},  // an absolute target
    {"unreadable", LinkEnd::outside},
    {"circle", LinkEnd::endless},
    {"../dangling/x", LinkEnd::inside},  // to what is not there
};

LinkWalk walkFromA() {
  static const std::map<std::string, std::string> links{{"top/a/up", ".."},
                                                        {"top/a/root", "/"},
                                                        {"top/a/unreadable", ""},
                                                        {"top/a/circle", "./circle"},
                                                        {"top/dangling", "missing/place"}};
  LinkWalk walk;
  walk.place = {"top", "a"};
  walk.floor = 1;
  walk.targetAt = [](const std::vector<std::string>& place) -> std::optional<std::string> {
    std::string path;
    for (const std::string& part : place) path += (path.empty() ? "" : "/") + part;
    const auto found = links.find(path);
    if (found == links.end()) return std::nullopt;
    return found->second;
  };
  return walk;
}

TEST(LinkWalk, TellsWhetherALinkLeadsOut) {
  for (const Walk& walk : kWalks) EXPECT_EQ(followPath(walkFromA(), walk.path), walk.end) << walk.path;
}

TEST(LinkWalk, CountsTheLinksOnTheWay) {
  LinkWalk walk = walkFromA();
  walk.mostLinks = 1;
  EXPECT_EQ(followPath(walk, "up/a"), LinkEnd::inside);
  EXPECT_EQ(followPath(walk, "up/a/up"), LinkEnd::endless);
}

TEST(LinkWalk, TakesOtherSeparatorsForSuch) {
  LinkWalk walk;
  walk.place = {"a"};
  EXPECT_EQ(followPath(walk, "..\\..\\x"), LinkEnd::inside) << "one strange name";
  walk.separators = "/\\";
  EXPECT_EQ(followPath(walk, "..\\..\\x"), LinkEnd::outside);
}

TEST(LinkWalk, ComponentsAreWhatNamesSomething) {
  EXPECT_EQ(pathComponents("/a/./b//../c/"), (std::vector<std::string_view>{"a", "b", "..", "c"}));
  EXPECT_EQ(pathComponents("a\\b/c", "/\\"), (std::vector<std::string_view>{"a", "b", "c"}));
  EXPECT_TRUE(pathComponents("").empty());
  EXPECT_TRUE(pathComponents("/").empty());
}

}  // namespace
