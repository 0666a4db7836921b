#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "messaging/PiecePlan.h"

// What each piece means for the message that is being put together, without host, loop or delegate.

namespace {

using tks::messaging::PiecePlan;
using tks::messaging::planOf;
using Action = PiecePlan::Action;

constexpr std::uint64_t kLargest = 12;

/// Four bytes that announce a length.
std::string header(std::uint8_t length) { return {static_cast<char>(length), 0, 0, 0}; }

struct Row {
  const char* name;
  std::uint64_t missing;
  std::string piece;
  Action action;
  std::string problem;
  std::uint64_t announced;
  std::string taken;
  std::uint64_t missingAfter;
  bool hasSurplus;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class PiecePlanTest : public testing::TestWithParam<Row> {};

TEST_P(PiecePlanTest, SaysWhatToDo) {
  const Row& row = GetParam();
  const PiecePlan plan = planOf(row.missing, row.piece, kLargest);
  EXPECT_EQ(plan.action, row.action);
  EXPECT_EQ(plan.problem, row.problem);
  EXPECT_EQ(plan.announced, row.announced);
  EXPECT_EQ(plan.taken, row.taken);
  EXPECT_EQ(plan.missing, row.missingAfter);
  EXPECT_EQ(plan.hasSurplus, row.hasSurplus);
}

const std::string kEnded =
    "Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message probably means parent or child "
    "process already exited, while current message host is still open.)";
const std::string kCut = "Message data size ( 3 ) less than 'sizeOfSize', no pending data.";
const std::string kNothingNew = "Message data empty ( 0 ), pending data expected.";
const std::string kTooLong = "Unexpected message data size: 13, exceed max message size: 12";
const std::string kAnnouncesTooMuch = "Unexpected telling data size: 13, exceed max message size: 12";

INSTANTIATE_TEST_SUITE_P(
    Of, PiecePlanTest,
    testing::Values(
        Row{"APieceThatIsTooLong", 0, std::string(13, 'x'), Action::refuse, kTooLong, 0, "", 0, false},
        Row{"MoreOfAMessageThatIsTooLong", 20, std::string(13, 'x'), Action::refuse, kTooLong, 0, "", 20, false},
        Row{"TheEnd", 0, "", Action::refuse, kEnded, 0, "", 0, false},
        Row{"ACutHeader", 0, std::string(3, '\0'), Action::refuse, kCut, 0, "", 0, false},
        Row{"TheEndInTheMiddle", 5, "", Action::refuse, kNothingNew, 0, "", 5, false},
        Row{"PartOfWhatIsMissing", 5, "abc", Action::resume, "", 0, "abc", 2, false},
        Row{"WhatIsMissing", 5, "abcde", Action::resume, "", 0, "abcde", 0, false},
        Row{"MoreThanIsMissing", 5, "abcdefg", Action::resume, "", 0, "abcdefg", 0, false},
        Row{"TheLargestPiece", 12, std::string(12, 'x'), Action::resume, "", 0, std::string(12, 'x'), 0, false},
        Row{"AHeaderThatAnnouncesTooMuch", 0, header(13) + "abc", Action::begin, kAnnouncesTooMuch, 13, "", 0, false},
        Row{"TheLargestAnnouncement", 0, header(12) + "abc", Action::begin, "", 12, "abc", 9, false},
        Row{"AHeaderAlone", 0, header(5), Action::begin, "", 5, "", 5, false},
        Row{"PartOfAFrame", 0, header(5) + "abc", Action::begin, "", 5, "abc", 2, false},
        Row{"AFrame", 0, header(5) + "abcde", Action::begin, "", 5, "abcde", 0, false},
        Row{"AFrameAndMore", 0, header(5) + "abcdefg", Action::begin, "", 5, "abcde", 0, true},
        Row{"AnEmptyFrame", 0, header(0), Action::begin, "", 0, "", 0, false},
        Row{"AnEmptyFrameAndMore", 0, header(0) + "a", Action::begin, "", 0, "", 0, true}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(PiecePlans, LimitBelowTheHeaderRefusesEveryPieceThatHasOne) {
  EXPECT_EQ(planOf(0, header(0), 3).action, Action::refuse);
  EXPECT_EQ(planOf(0, "abc", 3).problem, kCut);
}

}  // namespace
