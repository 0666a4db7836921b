#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace tks::fuzz {

/// What libplist takes otherwise than XML has it, in one list: where it differs, it is not the one to compare with.
/// Python's reader is, in property_list_peers.py.
struct LibplistDifferences {
  /// A tag, an instruction or a document type ends elsewhere for it, and with it all that follows: it knows no quotes
  /// but ", and these also in instructions, where XML has none.
  bool everything = false;
  /// It takes references for what they look like everywhere but in texts, integers that begin with a zero to the base
  /// of eight, and nothing but the first piece of dates and data that comments or CDATA sections cut into pieces; dates
  /// may have 31 characters, with the blanks after them.
  bool integers = false;
  bool reals = false;
  bool dates = false;
  bool data = false;
  /// It knows no encoding but UTF-8, whatever the list says.
  bool otherThanAscii = false;
};

/// Goes through a list from tag to tag.
class LibplistDifferencesFinder {
 public:
  explicit LibplistDifferencesFinder(std::string_view list) : list_(list.substr(0, list.find('\0'))) {}

  LibplistDifferences find() {
    for (at_ = list_.find('<'); at_ < list_.size() && !found_.everything; at_ = list_.find('<', at_)) passMarkup();
    return found_;
  }

 private:
  static constexpr std::size_t kNowhere = std::string_view::npos;

  bool isAt(std::string_view word) const { return list_.substr(at_).starts_with(word); }

  /// Where a word ends that comes next, from a place on; words in quotes of these kinds do not count.
  std::size_t endOf(std::string_view word, std::size_t from, std::string_view quotes = {}) const {
    for (std::size_t i = from; i < list_.size(); ++i) {
      if (list_.substr(i).starts_with(word)) return i + word.size();
      if (quotes.find(list_[i]) == kNowhere) continue;
      i = list_.find(list_[i], i + 1);
      if (i == kNowhere) break;
    }
    return kNowhere;
  }

  /// Where something ends by XML's rules and by libplist's.
  void passTo(std::size_t xmls, std::size_t libplists) {
    if (xmls != libplists || xmls == kNowhere) found_.everything = true;
    at_ = xmls;
  }

  void passMarkup() {
    if (isAt("<!--")) return passTo(endOf("-->", at_ + 4), endOf("-->", at_ + 4));
    if (isAt("<!DOCTYPE")) return passDocumentType();
    if (isAt("<?")) return passInstruction();
    const std::size_t begin = at_;
    passTo(endOf(">", at_, "\"'"), endOf(">", at_, "\""));
    if (found_.everything) return;
    const std::string_view tag = list_.substr(begin + 1, at_ - begin - 2);
    if (!tag.ends_with('/')) passContent(tag.substr(0, tag.find_first_of(" \t\r\n")));
  }

  void passInstruction() {
    const std::size_t begin = at_;
    passTo(endOf("?>", at_ + 2), endOf("?>", at_ + 2, "\""));
    const std::string_view instruction = list_.substr(begin, at_ == kNowhere ? at_ : at_ - begin);
    constexpr auto isSame = [](char given, char wanted) { return (given | 0x20) == wanted; };
    for (const std::string_view encoding : {std::string_view("8859-1"), std::string_view("latin1")}) {
      const auto found = std::search(instruction.begin(), instruction.end(), encoding.begin(), encoding.end(), isSame);
      if (found != instruction.end()) found_.otherThanAscii = true;
    }
  }

  /// Declarations in it are nested for XML, which may hold comments and instructions, too. Libplist looks for "]>".
  void passDocumentType() {
    const std::size_t begin = at_ + 1;
    const std::size_t brackets = list_.find_first_of("[>\"", begin);
    if (brackets == kNowhere || list_[brackets] != '[') {
      const std::size_t xmls = endOf(">", begin, "\"'");
      const std::string_view type = list_.substr(begin, xmls == kNowhere ? xmls : xmls - begin);
      if (type.find_first_of("<[") != kNowhere) found_.everything = true;
      return passTo(xmls, endOf(">", begin, "\""));
    }
    const std::size_t libplists = endOf("]>", brackets, "\"");
    const std::string_view type = list_.substr(begin, libplists == kNowhere ? libplists : libplists - begin);
    const bool isSimple = type.find_first_of("\"'?") == kNowhere && type.find("<!--") == kNowhere &&
                          type.find("<![") == kNowhere && type.find(']') == type.size() - 2 &&
                          std::ranges::count(type, '<') == std::ranges::count(type, '>') - 1 && declarationsEnd(type);
    passTo(isSimple ? libplists : kNowhere, libplists);
  }

  /// Each before the next one begins, and before the document type does.
  static bool declarationsEnd(std::string_view type) {
    bool isOpen = false;
    for (const char c : type.substr(0, type.size() - 1)) {
      if (c == (isOpen ? '<' : '>')) return false;
      if (c == '<' || c == '>') isOpen = c == '<';
    }
    return !isOpen;
  }

  /// Of an element that holds no others.
  void passContent(std::string_view element) {
    constexpr std::array<std::string_view, 8> kScalars = {"key",  "string", "integer", "real",
                                                          "date", "data",   "true",    "false"};
    if (std::ranges::find(kScalars, element) == kScalars.end()) return;
    const std::size_t begin = at_;
    for (at_ = list_.find('<', at_); at_ != kNowhere && !isAt("</"); at_ = list_.find('<', at_)) {
      const bool isSection = isAt("<![CDATA[");
      if (!isSection && !isAt("<!--")) break;
      const std::size_t end = isSection ? endOf("]]>", at_ + 9) : endOf("-->", at_ + 4);
      passTo(end, end);
      if (found_.everything) return;
    }
    compareContent(element, list_.substr(begin, at_ == kNowhere ? at_ : at_ - begin));
  }

  void compareContent(std::string_view element, std::string_view content) {
    const bool hasReferences = content.find('&') != kNowhere;
    const bool isInPieces = content.find('<') != kNowhere;
    constexpr std::size_t kLongestDate = 31;
    if (element == "integer" && (hasReferences || hasLeadingZero(content, isInPieces))) found_.integers = true;
    if (element == "real" && hasReferences) found_.reals = true;
    if (element == "date" && (hasReferences || isInPieces || content.size() > kLongestDate)) found_.dates = true;
    if (element == "data" && (hasReferences || isInPieces)) found_.data = true;
  }

  static bool hasLeadingZero(std::string_view content, bool isInPieces) {
    const std::size_t zero = content.find('0');
    if (zero == kNowhere || isInPieces) return zero != kNowhere;
    const std::size_t digit = content.find_first_of("0123456789");
    return zero == digit && zero + 1 < content.size() && content[zero + 1] >= '0' && content[zero + 1] <= '9';
  }

  const std::string_view list_;
  std::size_t at_ = 0;
  LibplistDifferences found_;
};

}  // namespace tks::fuzz
