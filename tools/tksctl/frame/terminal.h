#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tks::ctl {

/// What the user asked for with --color.
enum class ColourWish { automatic, always, never };

/// The meaning of a piece of text, which decides its colour.
enum class Style { plain, good, warning, bad, dim, bold };

/// What is known of a descriptor that text for people goes to.
class Terminal {
 public:
  /// Looks at the descriptor and at the variables NO_COLOR, TERM and COLUMNS.
  Terminal(int descriptor, ColourWish wish);

  /// A terminal that can move its cursor: bars may be drawn.
  bool canRedraw() const { return canRedraw_; }
  bool hasColours() const { return hasColours_; }
  /// Columns, as they are now; 80 when nobody knows.
  std::size_t width() const;
  /// The text in the colour of its meaning, or as it is where there are no colours.
  std::string styled(Style style, std::string_view text) const;

 private:
  int descriptor_;
  bool canRedraw_ = false;
  bool hasColours_ = false;
};

/// How many columns a text takes: its characters, in UTF-8.
std::size_t columnsOf(std::string_view text);
/// The text, cut to so many columns with "..." at its end.
std::string cutTo(std::size_t columns, std::string_view text);
/// The text broken between words into lines of at most so many columns, each after `indent`. A word that is longer
/// stands alone.
std::string wrapped(std::string_view text, std::string_view indent, std::size_t columns);

}  // namespace tks::ctl
