#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <iostream>
#include <thread>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHome.h"
#include "tests/support/ProcessState.h"

// What every implementation of the contract promises, with real processes that share a home. On macOS a daemon keeps
// the preferences: what one process has stored, the others find.

namespace {

using namespace tks::test;

tks::platform::Preferences& preferences() { return tks::platform::preferences(); }

/// HOME KEY...: prints the value of each key in the merged dictionary, as single value, and in the argument domain.
int printPreferences(const Arguments& arguments) {
  const FakeHome home(arguments.at(0));
  const TKSDictionary all = preferences().dictionaryRepresentation();
  for (std::size_t i = 1; i < arguments.size() && !arguments[i].starts_with('-'); ++i) {
    const std::string& key = arguments[i];
    const TKSValue argument = preferences().argument(key);
    if (!argument.isNothing() && !argument.isText()) return 1;
    std::cout << key << "=" << all[key].description() << "," << preferences().value(key).description() << ","
              << argument.description() << "\n";
  }
  return 0;
}
const ChildRole kPrint("print-preferences", printPreferences);

/// HOME PREFIX COUNT: stores so many values under keys of its own, and its progress under a key that all share.
int storePreferences(const Arguments& arguments) {
  const FakeHome home(arguments.at(0));
  for (int i = 0; i < std::stoi(arguments.at(2)); ++i) {
    if (!preferences().set(arguments[1] + std::to_string(i), i, nullptr)) return 1;
    if (!preferences().set("last", arguments[1], nullptr)) return 2;
  }
  return 0;
}
const ChildRole kStore("store-preferences", storePreferences);

class PreferencesTest : public testing::Test {
 protected:
  std::string printed(Arguments keys, const Arguments& commandLine = {}, const Arguments& environment = {}) {
    keys.insert(keys.begin(), home_.realHome());
    keys.insert(keys.end(), commandLine.begin(), commandLine.end());
    ChildProcess child = ChildProcess::inRole("print-preferences", keys, environment);
    EXPECT_EQ(child.wait(), 0);
    return child.output();
  }

  /// Where the system keeps preferences for the user, whatever the library takes for the home, nothing stays behind.
  ~PreferencesTest() override {
    const TKSDictionary after = preferences().dictionaryRepresentation();
    for (const auto& [key, value] : after) {
      if (!before_.contains(key)) preferences().set(key, TKSValue(), nullptr);
    }
  }

  FakeHome home_;
  const TKSDictionary before_ = preferences().dictionaryRepresentation();
};

TEST_F(PreferencesTest, AStoredValueOfAnyKindIsReadBackHereAndElsewhere) {
  const TKSDictionary values{{"text", "a ä\n"},
                             {"integer", -5},
                             {"real", 1.5},
                             {"boolean", true},
                             {"date", TKSDate{1e9}},
                             {"data", TKSData{1, 2}},
                             {"array", TKSArray{1, "x"}},
                             {"dictionary", TKSDictionary{{"a", TKSDictionary{{"b", 1}}}}}};
  for (const auto& [key, value] : values) EXPECT_TRUE(preferences().set(key, value, nullptr));
  for (const auto& [key, value] : values) {
    EXPECT_EQ(preferences().value(key), value);
    EXPECT_EQ(preferences().dictionaryRepresentation()[key], value);
  }
  EXPECT_EQ(printed({"integer"}), "integer=-5,-5,(null)\n");
}

TEST_F(PreferencesTest, AbsentKeysReadAsNothing) {
  EXPECT_TRUE(preferences().value("absent").isNothing());
  EXPECT_TRUE(preferences().argument("absent").isNothing());
  EXPECT_FALSE(preferences().dictionaryRepresentation().contains("absent"));
}

TEST_F(PreferencesTest, StoringReplacesAndNothingRemoves) {
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  ASSERT_TRUE(preferences().set("other", 2, nullptr));
  ASSERT_TRUE(preferences().set("key", "new", nullptr));
  EXPECT_EQ(preferences().value("key"), TKSValue("new"));
  ASSERT_TRUE(preferences().set("key", TKSValue(), nullptr));
  EXPECT_TRUE(preferences().value("key").isNothing());
  EXPECT_EQ(preferences().value("other"), TKSValue(2));
}

TEST_F(PreferencesTest, WhatPropertyListsDoNotHaveIsRefusedAndChangesNothing) {
  ASSERT_TRUE(preferences().set("key", 1, nullptr));
  TKSError error;
  EXPECT_FALSE(preferences().set("key", TKSNull(), &error));
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_EQ(preferences().value("key"), TKSValue(1));
}

TEST_F(PreferencesTest, WhatXmlDoesNotHaveIsKept) {
  ASSERT_TRUE(preferences().set("bell", "\a", nullptr));
  ASSERT_TRUE(preferences().set("other", 1, nullptr));
  EXPECT_EQ(preferences().value("bell"), TKSValue("\a"));
}

struct CommandLine {
  const char* name;
  Arguments arguments;
  const char* value;
  friend std::ostream& operator<<(std::ostream& out, const CommandLine& line) { return out << line.name; }
};

class ArgumentDomain : public PreferencesTest, public testing::WithParamInterface<CommandLine> {};

TEST_P(ArgumentDomain, HoldsPairsOfTheCommandLine) {
  const std::string value = GetParam().value;
  EXPECT_EQ(printed({"Name"}, GetParam().arguments), "Name=" + value + "," + value + "," + value + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, ArgumentDomain,
    testing::Values(CommandLine{"Pair", {"-Name", "x"}, "x"},
                    CommandLine{"LaterPairReplaces", {"-Name", "x", "-Name", "y"}, "y"},
                    CommandLine{"OtherPairsBeside", {"-A", "1", "-Name", "x", "-B", "2"}, "x"},
                    CommandLine{"TextsBetween", {"-A", "1", "between", "-Name", "x", "behind"}, "x"},
                    CommandLine{"NoValueAtTheEnd", {"-Name"}, "(null)"},
                    CommandLine{"NoValueBeforeAName", {"-Name", "-Other", "x"}, "(null)"},
                    CommandLine{"LaterPairWithoutValueReplacesNothing", {"-Name", "x", "-Name"}, "x"},
                    CommandLine{"EmptyValue", {"-Name", ""}, ""}, CommandLine{"DashAsValue", {"-Name", "-"}, "-"},
                    CommandLine{"ValueWithEquals", {"-Name", "a=b"}, "a=b"},
                    CommandLine{"NoDash", {"-A", "1", "Name", "x"}, "(null)"},
                    CommandLine{"TwoDashesAreAnotherName", {"--Name", "x"}, "(null)"},
                    CommandLine{"NumbersAreTexts", {"-Name", "1"}, "1"},
                    CommandLine{"ListsAreTexts", {"-Name", "(a, b)"}, "(a, b)"},
                    CommandLine{"DictionariesAreTexts", {"-Name", "{a = b;}"}, "{a = b;}"},
                    CommandLine{"DataAreTexts", {"-Name", "<0a0b>"}, "<0a0b>"},
                    CommandLine{"PropertyListsAreTexts", {"-Name", "<plist><true/></plist>"}, "<plist><true/></plist>"},
                    CommandLine{"QuotedTextsKeepTheirQuotes", {"-Name", "\"a\""}, "\"a\""},
                    CommandLine{"ValueOfAPairIsNoName", {"-Name", "x", "Name", "y"}, "x"}),
    [](const auto& line) { return line.param.name; });

TEST_F(PreferencesTest, TheArgumentDomainComesBeforeTheOwnDomain) {
  ASSERT_TRUE(preferences().set("Name", "stored", nullptr));
  EXPECT_EQ(printed({"Name"}, {"-Name", "given"}), "Name=given,given,given\n");
  EXPECT_EQ(printed({"Name"}), "Name=stored,stored,(null)\n");
}

TEST_F(PreferencesTest, ProcessesThatStoreAtOnceLoseNoKey) {
  constexpr int kProcesses = 3;
  constexpr int kKeys = 60;
  std::vector<ChildProcess> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(ChildProcess::inRole(
        "store-preferences", {home_.realHome(), std::string(1, static_cast<char>('a' + i)), std::to_string(kKeys)}));
  }
  for (ChildProcess& child : children) EXPECT_EQ(child.wait(), 0);
  const TKSDictionary all = preferences().dictionaryRepresentation();
  for (int i = 0; i < kProcesses; ++i) {
    for (int key = 0; key < kKeys; ++key) {
      const std::string name = std::string(1, static_cast<char>('a' + i)) + std::to_string(key);
      EXPECT_EQ(all[name], TKSValue(key)) << name;
    }
  }
  EXPECT_TRUE(all.contains("last"));
}

TEST_F(PreferencesTest, ThreadsThatStoreAtOnceLoseNoKey) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread] {
      for (int key = 0; key < 25; ++key) {
        EXPECT_TRUE(preferences().set(std::to_string(thread) + "-" + std::to_string(key), key, nullptr));
        preferences().value("0-0");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const TKSDictionary all = preferences().dictionaryRepresentation();
  for (int thread = 0; thread < 4; ++thread) {
    for (int key = 0; key < 25; ++key) EXPECT_TRUE(all.contains(std::to_string(thread) + "-" + std::to_string(key)));
  }
}

TEST_F(PreferencesTest, AProcessKilledWhileItStoresHarmsNothing) {
  ASSERT_TRUE(preferences().set("mine", 1, nullptr));
  for (int round = 0; round < 12; ++round) {
    // What it makes for itself stays when it is killed, and goes with this home.
    ChildProcess child =
        ChildProcess::inRole("store-preferences", {home_.realHome(), "k", "100000"}, {"TMPDIR=" + home_.temporary()});
    const std::string goal = "k" + std::to_string(round);
    ASSERT_TRUE(waitUntil([&] { return !preferences().value(goal).isNothing(); }));
    ::kill(child.pid(), SIGKILL);
    EXPECT_EQ(child.wait(), 128 + SIGKILL);
    EXPECT_EQ(preferences().value("mine"), TKSValue(1));
    EXPECT_EQ(preferences().value(goal), TKSValue(round));
    ASSERT_TRUE(preferences().set("round", round, nullptr));
  }
}

TEST_F(PreferencesTest, NoDescriptorStaysOpen) {
  const std::set<int> before = openDescriptors();
  preferences().set("key", 1, nullptr);
  preferences().set("key", TKSNull(), nullptr);
  preferences().dictionaryRepresentation();
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
