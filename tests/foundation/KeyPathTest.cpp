#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "tests/support/LogRecorder.h"
#include "tests/support/PrintValue.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;

TKSValue get(const TKSKeyPath& keyPath, const TKSDictionary& dictionary) {
  return TKSUtilBase::getValueFormPlist(keyPath, dictionary);
}

/// What stands in the way of a key path is replaced with this warning.
LogLine replaced(const std::string& key, const std::string& old) {
  return {4, "No intermediate dict for key '" + key + "', or existing value type conflict '" + old +
                 "', create and replace it."};
}

class KeyPath : public testing::Test {
 protected:
  const TKSDictionary sample_{
      {"text", "x"}, {"null", TKSNull()}, {"a", TKSDictionary{{"b", TKSDictionary{{"c", 7}}}, {"array", TKSArray{1}}}}};
  LogRecorder log_;
};

// Reading.

TEST_F(KeyPath, ReadingWithoutAKeyPathIsAnError) {
  EXPECT_TRUE(get({}, sample_).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "Nil/empty key path, fail to get preference."}));
}

TEST_F(KeyPath, AnEmptyDictionaryIsReportedAsInformation) {
  EXPECT_TRUE(get({"a"}, TKSDictionary()).isNothing());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Nil/empty plistDict, fail to get preference."}));
}

TEST_F(KeyPath, TheEmptyKeyPathIsReportedBeforeTheEmptyDictionary) {
  get({}, TKSDictionary());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "Nil/empty key path, fail to get preference."}));
}

TEST_F(KeyPath, OneKeyReadsTheTopLevelAsItIs) {
  EXPECT_EQ(get({"text"}, sample_), TKSValue("x"));
  EXPECT_EQ(get({"null"}, sample_), TKSValue(TKSNull()));
  EXPECT_EQ(get({"a"}, sample_), sample_["a"]);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(KeyPath, OneMissingKeyIsNothingWithoutALine) {
  EXPECT_TRUE(get({"missing"}, sample_).isNothing());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(KeyPath, SeveralKeysReadNestedValues) {
  EXPECT_EQ(get({"a", "b"}, sample_), TKSValue(TKSDictionary{{"c", 7}}));
  EXPECT_EQ(get({"a", "b", "c"}, sample_), TKSValue(7));
  EXPECT_EQ(get({"a", "array"}, sample_), TKSValue(TKSArray{1}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

struct MissingKey {
  TKSKeyPath keyPath;
  const char* line;
};

TEST_F(KeyPath, AMissingKeyOnALongerPathIsNamed) {
  const MissingKey cases[] = {{{"missing", "b"}, "No value for key: missing"},
                              {{"a", "missing"}, "No value for key: missing"},
                              {{"a", "missing", "c"}, "No value for key: missing"},
                              {{"a", "b", "d"}, "No value for key: d"},
                              {{"a", "b", ""}, "No value for key: "}};
  for (const MissingKey& one : cases) {
    log_.clear();
    EXPECT_TRUE(get(one.keyPath, sample_).isNothing());
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, one.line}));
  }
}

TEST_F(KeyPath, AnIntermediateValueThatIsNoDictionaryIsAnError) {
  const MissingKey cases[] = {{{"text", "b"}, "Unexpected value (type), key 'text', value 'x'"},
                              {{"null", "b"}, "Unexpected value (type), key 'null', value '<null>'"},
                              {{"a", "b", "c", "d"}, "Unexpected value (type), key 'c', value '7'"},
                              {{"a", "array", "0"}, "Unexpected value (type), key 'array', value '(\n    1\n)'"}};
  for (const MissingKey& one : cases) {
    log_.clear();
    EXPECT_TRUE(get(one.keyPath, sample_).isNothing());
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, one.line}));
  }
}

TEST_F(KeyPath, ValuesAndKeysAreMaskedInLines) {
  get({"jane.roe@a.example", "b"}, sample_);
  get({"who", "b"}, {{"who", "/Users/janeroe/x"}});
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "No value for key: jane.***@a.example"},
                                        LogLine{8, "Unexpected value (type), key 'who', value '/Users/*******/x'"}));
}

TEST_F(KeyPath, AKeyIsNoPath) {
  EXPECT_TRUE(get({"a.b"}, sample_).isNothing());
  EXPECT_EQ(get({"a.b"}, {{"a.b", 1}}), TKSValue(1));
  EXPECT_EQ(get({"a/b", "c"}, {{"a/b", TKSDictionary{{"c", 2}}}}), TKSValue(2));
}

TEST_F(KeyPath, WhatIsReadIsACopy) {
  TKSDictionary dictionary = sample_;
  TKSDictionary inner = get({"a", "b"}, dictionary).dictionary();
  inner.set("c", 8);
  EXPECT_EQ(get({"a", "b", "c"}, dictionary), TKSValue(7));
}

// Writing.

TEST_F(KeyPath, WritingWithoutAKeyPathChangesNothing) {
  TKSDictionary dictionary = sample_;
  EXPECT_EQ(TKSUtilBase::setValueForDict({}, 1, &dictionary), sample_);
  EXPECT_EQ(dictionary, sample_);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "No key path given, fail to set plist."}));
}

TEST_F(KeyPath, WritingWithoutAValueChangesNothing) {
  TKSDictionary dictionary = sample_;
  EXPECT_EQ(TKSUtilBase::setValueForDict({"a"}, TKSValue(), &dictionary), sample_);
  EXPECT_EQ(dictionary, sample_);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "No value given, fail to set plist."}));
}

TEST_F(KeyPath, WritingNeitherIntoNothingGivesAnEmptyDictionary) {
  EXPECT_EQ(TKSUtilBase::setValueForDict({}, TKSValue(), nullptr), TKSDictionary());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "No key path given, fail to set plist."}));
}

TEST_F(KeyPath, OneKeyIsSetInPlace) {
  TKSDictionary dictionary = sample_;
  const TKSDictionary result = TKSUtilBase::setValueForDict({"text"}, 1, &dictionary);
  EXPECT_EQ(dictionary["text"], TKSValue(1));
  EXPECT_EQ(dictionary["a"], sample_["a"]);
  EXPECT_EQ(result, dictionary);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(KeyPath, ANullIsAValue) {
  TKSDictionary dictionary;
  TKSUtilBase::setValueForDict({"a"}, TKSNull(), &dictionary);
  EXPECT_EQ(dictionary, (TKSDictionary{{"a", TKSNull()}}));
}

TEST_F(KeyPath, AMissingDictionaryStartsANewOne) {
  EXPECT_EQ(TKSUtilBase::setValueForDict({"a"}, 1, nullptr), (TKSDictionary{{"a", 1}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(TKSUtilBase::setValueForDict({"a", "b"}, 1, nullptr), (TKSDictionary{{"a", TKSDictionary{{"b", 1}}}}));
  EXPECT_THAT(log_.lines(), ElementsAre(replaced("a", "(null)")));
}

TEST_F(KeyPath, SiblingsStayAtEveryLevel) {
  TKSDictionary dictionary = sample_;
  TKSUtilBase::setValueForDict({"a", "b", "new"}, "value", &dictionary);
  EXPECT_EQ(
      dictionary,
      (TKSDictionary{{"text", "x"},
                     {"null", TKSNull()},
                     {"a", TKSDictionary{{"b", TKSDictionary{{"c", 7}, {"new", "value"}}}, {"array", TKSArray{1}}}}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(KeyPath, SettingThroughATextReplacesItByADictionary) {
  TKSDictionary dictionary{{"a", TKSDictionary{{"b", "text"}, {"other", 1}}}};
  TKSUtilBase::setValueForDict({"a", "b", "c"}, 2, &dictionary);
  EXPECT_EQ(dictionary, (TKSDictionary{{"a", TKSDictionary{{"b", TKSDictionary{{"c", 2}}}, {"other", 1}}}}));
  EXPECT_THAT(log_.lines(), ElementsAre(replaced("b", "text")));
}

TEST_F(KeyPath, EveryMissingLevelIsMadeWithAWarningOfItsOwn) {
  TKSDictionary dictionary{{"a", TKSArray{1}}};
  TKSUtilBase::setValueForDict({"a", "b", "c", "d"}, true, &dictionary);
  EXPECT_EQ(get({"a", "b", "c", "d"}, dictionary), TKSValue(true));
  EXPECT_THAT(log_.lines(),
              ElementsAre(replaced("a", "(\n    1\n)"), replaced("b", "(null)"), replaced("c", "(null)")));
}

TEST_F(KeyPath, WhatIsReplacedIsMaskedInTheLine) {
  TKSDictionary dictionary{{"who", "/Users/janeroe/x"}};
  TKSUtilBase::setValueForDict({"who", "b"}, 1, &dictionary);
  EXPECT_THAT(log_.lines(), ElementsAre(replaced("who", "/Users/*******/x")));
}

TEST_F(KeyPath, CopiesMadeBeforeStayAsTheyWere) {
  TKSDictionary dictionary = sample_;
  const TKSDictionary copy = dictionary;
  TKSUtilBase::setValueForDict({"a", "b", "c"}, 8, &dictionary);
  EXPECT_EQ(copy, sample_);
  EXPECT_EQ(get({"a", "b", "c"}, dictionary), TKSValue(8));
}

TEST_F(KeyPath, AValueMayBeSetIntoItself) {
  TKSDictionary dictionary{{"a", 1}};
  TKSUtilBase::setValueForDict({"b", "c"}, dictionary, &dictionary);
  EXPECT_EQ(dictionary, (TKSDictionary{{"a", 1}, {"b", TKSDictionary{{"c", TKSDictionary{{"a", 1}}}}}}));
}

TEST_F(KeyPath, MayBeAHundredThousandKeysLong) {
  TKSILog::sharedInstance().setLogBlock({});
  const TKSKeyPath keyPath(100000, "k");
  TKSDictionary dictionary;
  TKSUtilBase::setValueForDict(keyPath, "deep", &dictionary);
  EXPECT_EQ(get(keyPath, dictionary), TKSValue("deep"));
}

// Against a second implementation: a tree of plain maps, by recursion.

struct Tree {
  std::map<std::string, Tree> children;
  std::optional<int> leaf;

  bool isDictionary() const { return !leaf; }

  TKSValue value() const {
    if (leaf) return *leaf;
    TKSDictionary dictionary;
    for (const auto& [key, child] : children) dictionary.set(key, child.value());
    return dictionary;
  }

  const Tree* find(const TKSKeyPath& path, std::size_t from, std::vector<std::int32_t>& levels) const {
    const auto child = children.find(path[from]);
    const bool isLast = from + 1 == path.size();
    if (child == children.end()) {
      if (path.size() > 1) levels.push_back(2);
      return nullptr;
    }
    if (isLast) return &child->second;
    if (!child->second.isDictionary()) {
      levels.push_back(8);
      return nullptr;
    }
    return child->second.find(path, from + 1, levels);
  }

  void set(const TKSKeyPath& path, std::size_t from, int value, std::vector<std::int32_t>& levels) {
    if (from + 1 == path.size()) {
      children[path[from]] = Tree{{}, value};
      return;
    }
    const auto child = children.find(path[from]);
    if (child == children.end() || !child->second.isDictionary()) {
      levels.push_back(4);
      children[path[from]] = Tree{};
    }
    children[path[from]].set(path, from + 1, value, levels);
  }
};

TEST_F(KeyPath, RandomReadsAndWritesAgreeWithASecondImplementation) {
  std::mt19937 random(44);
  const auto levels = [&] {
    std::vector<std::int32_t> found;
    for (const LogLine& line : log_.lines()) found.push_back(line.level);
    log_.clear();
    return found;
  };
  for (int round = 0; round < 60; ++round) {
    Tree tree;
    TKSDictionary dictionary;
    for (int step = 0; step < 80; ++step) {
      TKSKeyPath path(1 + random() % 4);
      for (std::string& key : path) key = std::string(1, static_cast<char>('a' + random() % 4));
      std::vector<std::int32_t> expected;
      if (random() % 2 == 0) {
        tree.set(path, 0, step, expected);
        EXPECT_EQ(TKSUtilBase::setValueForDict(path, step, &dictionary), dictionary);
      } else if (!dictionary.empty()) {
        const Tree* found = tree.find(path, 0, expected);
        EXPECT_EQ(get(path, dictionary), found != nullptr ? found->value() : TKSValue());
      }
      ASSERT_EQ(levels(), expected);
      ASSERT_EQ(TKSValue(dictionary), tree.value());
    }
  }
}

}  // namespace
