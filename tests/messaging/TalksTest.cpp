#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/messaging/Conversation.h"
#include "tests/support/BuildPaths.h"

// Plays the conversations of tests/data/talks; the README there explains their lines.

namespace {

using tks::test::Conversation;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;

struct Line {
  std::size_t number = 0;
  std::string text;

  bool isExpectation() const { return text.starts_with("> "); }
  /// What follows `word` and a blank; nothing when the line begins with another word.
  std::optional<std::string> after(std::string_view word) const {
    if (!text.starts_with(word)) return std::nullopt;
    if (text.size() == word.size()) return std::string();
    if (text[word.size()] != ' ') return std::nullopt;
    return text.substr(word.size() + 1);
  }
};

std::vector<Line> linesOf(const std::string& path) {
  std::vector<Line> lines;
  std::ifstream file(path);
  std::string text;
  for (std::size_t number = 1; std::getline(file, text); ++number) {
    if (!text.empty() && text[0] != '#') lines.push_back({number, text});
  }
  return lines;
}

std::string bytesOf(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

/// How the launcher's bytes are cut into reads.
struct Cut {
  enum class Kind { whole, everyByte, once };
  Kind kind = Kind::whole;
  std::size_t offset = 0;

  std::vector<std::string> parts(const std::string& bytes) const {
    if (kind == Kind::everyByte) {
      std::vector<std::string> all;
      for (const char c : bytes) all.emplace_back(1, c);
      return all;
    }
    if (kind == Kind::once && offset > 0 && offset < bytes.size()) {
      return {bytes.substr(0, offset), bytes.substr(offset)};
    }
    return {bytes};
  }

  friend std::ostream& operator<<(std::ostream& out, const Cut& cut) {
    if (cut.kind == Kind::whole) return out << "whole";
    if (cut.kind == Kind::everyByte) return out << "byte by byte";
    return out << "cut at " << cut.offset;
  }
};

class Player {
 public:
  explicit Player(Cut cut) : cut_(cut) {}

  /// Plays up to the end; returns how many bytes the launcher wrote at once at most.
  std::size_t play(const std::vector<Line>& lines) {
    for (const Line& line : lines) {
      if (line.isExpectation()) {
        expect(line);
      } else {
        checkNothingElse(line.number);
        act(line);
      }
    }
    checkNothingElse(lines.back().number);
    return longest_;
  }

 private:
  void act(const Line& line) {
    if (line.after("host")) write();
    if (line.text == "host hello") return talk_.hello();
    if (line.text == "host disconnect") return talk_.disconnect();
    if (line.text == "host cleanup") return talk_.handler->cleanupConnectStatus4FileIPC();
    if (const auto json = line.after("host launch")) return talk_.launch(TKSMessage::JSONStringToObject(*json));
    if (const auto status = line.after("status")) {
      talk_.status = static_cast<TKSIAppStatus>(std::stoi(*status));
      return;
    }
    if (line.text == "launcher ends") {
      ends_ = true;
      return;
    }
    if (const auto hex = line.after("launcher raw")) {
      said_ += bytesOf(*hex);
      return;
    }
    if (const auto json = line.after("launcher")) {
      said_ += frame(*json);
      return;
    }
    throw std::runtime_error("line " + std::to_string(line.number) + " is not understood");
  }

  /// Writes what the launcher has said since the last time.
  void write() {
    longest_ = std::max(longest_, said_.size());
    if (!said_.empty()) {
      for (std::string& part : cut_.parts(said_)) talk_.channels.input->arrive(std::move(part));
    }
    said_.clear();
    if (ends_) talk_.channels.input->end();
    ends_ = false;
  }

  void expect(const Line& line) {
    write();
    if (line.text == "> open" || line.text == "> closed") {
      gather();
      EXPECT_EQ(talk_.handler->messageHost->isOpened, line.text == "> open") << "line " << line.number;
      return;
    }
    const std::string wanted = line.text.substr(2);
    drainUntil([&] {
      gather();
      return !events_.empty();
    });
    if (events_.empty()) {
      ADD_FAILURE() << "line " << line.number << ": nothing happens, expected: " << wanted;
      return;
    }
    EXPECT_EQ(events_.front(), wanted) << "line " << line.number;
    events_.erase(events_.begin());
  }

  void checkNothingElse(std::size_t number) {
    if (!said_.empty()) return;  // more is said before anything is looked at
    gather();
    EXPECT_TRUE(events_.empty()) << "before line " << number << ": " << events_.front();
    events_.clear();
  }

  void gather() {
    for (std::string& event : talk_.events()) events_.push_back(std::move(event));
  }

  Cut cut_;
  Conversation talk_;
  std::string said_;
  bool ends_ = false;
  std::size_t longest_ = 0;
  std::vector<std::string> events_;
};

std::vector<std::string> talks() {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(tks::test::testData("talks"))) {
    if (entry.path().extension() == ".talk") found.push_back(entry.path().stem());
  }
  std::sort(found.begin(), found.end());
  return found;
}

class TalksTest : public testing::TestWithParam<std::string> {
 protected:
  std::size_t play(Cut cut) const {
    SCOPED_TRACE(testing::Message() << GetParam() << ".talk, " << cut);
    return Player(cut).play(linesOf(tks::test::testData("talks/" + GetParam() + ".talk")));
  }
};

TEST_P(TalksTest, GoesAsWritten) { play({Cut::Kind::whole, 0}); }

TEST_P(TalksTest, GoesTheSameByteByByte) { play({Cut::Kind::everyByte, 0}); }

TEST_P(TalksTest, GoesTheSameCutAtEveryOffset) {
  const std::size_t longest = play({Cut::Kind::whole, 0});
  for (std::size_t offset = 1; offset < longest && !HasFailure(); ++offset) play({Cut::Kind::once, offset});
}

INSTANTIATE_TEST_SUITE_P(Conversations, TalksTest, testing::ValuesIn(talks()),
                         [](const auto& talk) { return talk.param; });

}  // namespace
