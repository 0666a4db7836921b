#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

#include "tools/tksctl/frame/exit_codes.h"
#include "tools/tksctl/frame/terminal.h"

namespace tks::ctl {

/// What the user asked for with the options that every command has.
struct OutputWishes {
  bool json = false;
  bool quiet = false;
  int verbosity = 0;
  ColourWish colour = ColourWish::automatic;
};

/// Everything that a command says. Data goes to standard output, all else to standard error. With --json standard
/// output gets one document and nothing else, also when the command fails:
///
///   {"command": "verify", "error": null, "exitCode": 0, "result": {...}, "tool": "tksctl", "version": "0.1.0"}
///
/// The members of "result" are the command's own; "error" has message, domain, code, reason and suggestion. Works on a
/// private descriptor of standard output, because a launcher started over pipes takes the place of the ordinary one.
/// One thread.
class Output {
 public:
  Output(std::string tool, std::string command, const OutputWishes& wishes);

  bool isJson() const { return wishes_.json; }
  bool isQuiet() const { return wishes_.quiet; }
  int verbosity() const { return wishes_.verbosity; }
  /// Where data is shown to people.
  const Terminal& terminal() const { return data_; }
  /// Where notes and bars are shown.
  const Terminal& noteTerminal() const { return notes_; }

  /// Text data as it is, without a line end being added. Nothing with --json.
  void print(std::string_view text);
  /// A line of text data. Nothing with --json.
  void line(std::string_view text);
  /// A member of the document's result. Nothing without --json.
  void set(std::string_view key, TKSValue value);
  /// Adds to the text member `key` of the result: for commands whose data is a text.
  void text(std::string_view key, std::string_view text);

  /// A line for people, on standard error; not with --quiet.
  void note(std::string_view text);
  /// The same, from -v (1) or -vv (2) on.
  void detail(int verbosity, std::string_view text);
  /// A line about something wrong that does not end the command; "tool: " stands before it.
  void warn(std::string_view text);
  /// Tells of the failure that ends the command in one line, and returns its exit code. Of several the first stands in
  /// the document.
  Exit fail(Exit code, std::string_view message, std::string_view suggestion = {});
  /// The same for an error of the library, whose reason gives the code; `doing` stands before its text.
  Exit fail(const TKSError& error, std::string_view doing = {});
  Exit fail(Exit code, const TKSError& error, std::string_view doing = {});

  /// Writes the document, if one was asked for, and returns the code to end with: `failed` instead of `ok` when data
  /// could not be written. Once, at the end.
  Exit finish(Exit code);
  /// The document for a command that is interrupted; empty without --json.
  std::string interruptedDocument() const;
  /// Where data is written to.
  int dataDescriptor() const { return descriptor_; }

 private:
  std::string documentFor(Exit code, const TKSValue& error, const TKSDictionary& result) const;
  void write(std::string_view text);

  std::string tool_;
  std::string command_;
  OutputWishes wishes_;
  int descriptor_;
  Terminal data_;
  Terminal notes_;
  TKSDictionary result_;
  TKSValue error_ = TKSNull();
  bool isBroken_ = false;
};

}  // namespace tks::ctl
