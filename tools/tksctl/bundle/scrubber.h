#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

namespace tks::ctl {

/// What is taken out of texts that leave this computer.
enum class Personal : std::uint8_t { user, host, mail, address, secret, word, rule };

/// "user names", "host names", ...
std::string_view nameOf(Personal kind);

/// Masks texts for somebody who was never on this computer: by the rules of the library's log and, beyond them, names
/// of users and computers, mail and network addresses, and what stands after names such as "token". Each name, host and
/// address gets one stand-in ("USER-1", "HOST-2"), so that what belongs together can still be seen. One thread.
class Scrubber {
 public:
  /// Hides a word wherever it stands, whatever its case; one of at most five letters only where it stands alone. Words
  /// of one or two letters are not hidden.
  void hide(Personal kind, std::string_view word);
  /// Writes "~" for this folder.
  void setHome(std::string_view path);

  /// The text, masked line by line. Messages of the protocol in it are masked as in recordings.
  std::string text(std::string_view text);
  /// The value with every text and every name of a member masked. Members that are called a version keep their numbers.
  TKSValue value(const TKSValue& value);

  /// How often each kind was masked since the last call, by the names of the kinds; what was not is left out.
  TKSDictionary takeCounts();

 private:
  struct Word {
    Personal kind;
    std::string lower;
  };

  TKSDictionary dictionary(const TKSDictionary& dictionary, int depth);
  TKSValue valueAt(const TKSValue& value, std::string_view key, int depth);
  std::string line(std::string_view line, bool keepsNumbers, int depth);
  std::string maskMessages(std::string_view line, int depth);
  std::string maskURLs(std::string_view line);
  std::string maskMail(std::string_view line);
  std::string maskSecrets(std::string_view line);
  std::string maskTokens(std::string_view line, bool keepsNumbers);
  std::string maskWords(std::string_view line);
  std::string applyRules(std::string_view line);

  std::string standIn(Personal kind, std::string_view original);

  std::vector<Word> words_;
  std::string home_;
  std::map<Personal, std::map<std::string, std::size_t, std::less<>>> known_;
  std::map<Personal, std::size_t> counts_;
};

}  // namespace tks::ctl
