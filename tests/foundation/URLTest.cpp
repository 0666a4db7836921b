#include <tksinterface/TKSURL.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

TKSURL url(std::string_view text) { return TKSURL::URLWithString(text).value(); }

using Text = std::optional<std::string>;

TEST(FileURL, KeepsThePath) {
  const TKSURL file = TKSURL::fileURLWithPath("/Applications/Some App.app");
  EXPECT_EQ(file.absoluteString(), "file:///Applications/Some%20App.app");
  EXPECT_EQ(file.path(), "/Applications/Some App.app");
  EXPECT_EQ(file.scheme(), "file");
  EXPECT_TRUE(file.isFileURL());
  EXPECT_EQ(file.query(), std::nullopt);
}

TEST(FileURL, KeepsAnyBytesOfAPath) {
  std::string path = "/";
  for (int byte = 1; byte < 256; ++byte) path += static_cast<char>(byte);
  const TKSURL file = TKSURL::fileURLWithPath(path);
  EXPECT_EQ(file.path(), path);
  EXPECT_EQ(TKSURL::URLWithString(file.absoluteString()), file);
  EXPECT_EQ(TKSURL::fileURLWithPath("/a?b#c%20d").path(), "/a?b#c%20d");
}

TEST(FileURL, LosesAClosingSlashInItsPath) {
  EXPECT_EQ(TKSURL::fileURLWithPath("/a/b/").path(), "/a/b");
  EXPECT_EQ(TKSURL::fileURLWithPath("/").path(), "/");
}

TEST(FileURL, OfARelativePathMeansTheWorkingFolder) {
  const tks::test::TemporaryFolder folder;
  const tks::test::ScopedWorkingFolder here(folder.path());
  const std::string real = std::filesystem::current_path();
  EXPECT_EQ(TKSURL::fileURLWithPath("a/tmp/x.app").path(), real + "/a/tmp/x.app");
  EXPECT_EQ(TKSURL::fileURLWithPath("a b").absoluteString(), "file://" + real + "/a%20b");
  EXPECT_EQ(TKSURL::fileURLWithPath("../x").path(), real + "/../x");
  EXPECT_EQ(TKSURL::fileURLWithPath("-x").path(), real + "/-x");
  std::filesystem::remove(real);
  EXPECT_EQ(TKSURL::fileURLWithPath("a"), TKSURL()) << "there is nothing that it could mean";
}

TEST(FileURL, OfAnEmptyPathIsEmpty) {
  EXPECT_EQ(TKSURL::fileURLWithPath(""), TKSURL());
  EXPECT_EQ(TKSURL().absoluteString(), "");
  EXPECT_EQ(TKSURL().path(), "");
  EXPECT_FALSE(TKSURL().isFileURL());
}

TEST(URLText, WithoutBlanksAndControlCharactersMakesAURL) {
  EXPECT_EQ(url("https://a.example/x?y=z").absoluteString(), "https://a.example/x?y=z");
  EXPECT_EQ(url("just-a-word").absoluteString(), "just-a-word");
  EXPECT_EQ(url("\u00e4.example").absoluteString(), "\u00e4.example");
  for (const char* text : {"", " ", "a b", "a\tb", "a\n", "\x01", "\x7F"}) {
    EXPECT_EQ(TKSURL::URLWithString(text), std::nullopt) << text;
  }
  EXPECT_EQ(TKSURL::URLWithString(std::string_view("a\0b", 3)), std::nullopt);
}

TEST(URLParts, AreTakenApart) {
  const TKSURL all = url("HTTPS://user@a.example:8080/a%20b/c/?x=1&y=/?z#f?g");
  EXPECT_EQ(all.scheme(), "HTTPS");
  EXPECT_EQ(all.path(), "/a b/c");
  EXPECT_EQ(all.query(), Text("x=1&y=/?z"));
  EXPECT_FALSE(all.isFileURL());
}

TEST(URLParts, MayBeMissing) {
  EXPECT_EQ(url("https://a.example").path(), "");
  EXPECT_EQ(url("https://a.example").query(), std::nullopt);
  EXPECT_EQ(url("https://a.example?").query(), Text(""));
  EXPECT_EQ(url("https://a.example?x").path(), "");
  EXPECT_EQ(url("https://a.example/#?x").query(), std::nullopt);
  EXPECT_EQ(url("a/b?x=y").scheme(), "");
  EXPECT_EQ(url("a/b?x=y").path(), "a/b");
  EXPECT_EQ(url("a/b:c").scheme(), "");
  EXPECT_EQ(url("7a:b").scheme(), "");
  EXPECT_EQ(url("x-y+z.1:b").scheme(), "x-y+z.1");
  EXPECT_EQ(url("?x:y").scheme(), "");
}

TEST(URLParts, AFileURLIsRecognisedInAnyCase) {
  EXPECT_TRUE(url("FILE:///a").isFileURL());
  EXPECT_FALSE(url("files:///a").isFileURL());
  EXPECT_FALSE(url("fil:///a").isFileURL());
}

TEST(URLParts, WhatIsNoEscapeStaysInThePath) {
  EXPECT_EQ(url("http://a/%zz%4").path(), "/%zz%4");
  EXPECT_EQ(url("http://a/%41%4").path(), "/A%4");
  EXPECT_EQ(url("http://a/%").path(), "/%");
  EXPECT_EQ(url("http://a/%e2%82%AC").path(), "/\u20ac");
}

TEST(URLComponent, IsJoinedByOneSlash) {
  EXPECT_EQ(url("https://a.example/x").appendingPathComponent("y").absoluteString(), "https://a.example/x/y");
  EXPECT_EQ(url("https://a.example/x/").appendingPathComponent("y").absoluteString(), "https://a.example/x/y");
  EXPECT_EQ(url("https://a.example").appendingPathComponent("y").absoluteString(), "https://a.example/y");
  EXPECT_EQ(TKSURL::fileURLWithPath("/").appendingPathComponent("y").absoluteString(), "file:///y");
  EXPECT_EQ(url("https://a.example/x//").appendingPathComponent("/y").absoluteString(), "https://a.example/x/y");
  EXPECT_EQ(url("https://a.example/x").appendingPathComponent("y/z").absoluteString(), "https://a.example/x/y/z");
}

TEST(URLComponent, IsEncoded) {
  EXPECT_EQ(url("https://a/x").appendingPathComponent("a b?c").absoluteString(), "https://a/x/a%20b%3Fc");
  EXPECT_EQ(TKSURL::fileURLWithPath("/x").appendingPathComponent("50%").path(), "/x/50%");
}

TEST(URLComponent, StandsBeforeTheQuery) {
  EXPECT_EQ(url("https://a/x?y=z#f").appendingPathComponent("b").absoluteString(), "https://a/x/b?y=z#f");
}

}  // namespace
