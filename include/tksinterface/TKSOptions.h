#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSValue.h>

/// Choices that make the library stricter than it has to be. Everything is off at first, which gives exactly the
/// described behaviour: 0, false, an empty text or list is "off". Each option works by itself, whatever the others are.
/// The options of a process are set before its first start, launch, installation or list of updates; each that is on
/// has one line of level 2 in the log when that begins. docs/security.md says what each is for and what it costs.
struct TKS_EXPORT TKSOptions {
  // Time limits. Milliseconds, at most 2147483647. A launcher that is not in time is a failure with the reason
  // `notAnswered`: the conversation is closed, the status is 1, and the error callbacks are called.

  /// From a greeting to its answer. Repeating the greeting does not begin anew. Suggested: 30000.
  std::int64_t helloLimit = 0;
  /// From a launch request to its answer, an error or the notice of an update. The launcher may download clients and
  /// ask the user meanwhile. Suggested: 600000.
  std::int64_t launchLimit = 0;
  /// From our goodbye to its answer. Suggested: 10000.
  std::int64_t disconnectLimit = 0;
  /// From the first byte of a message to its last. Suggested: 30000.
  std::int64_t frameLimit = 0;
  /// How long each tool of the system may run (unzip, spctl and so on); without the option it is 300000. What is longer
  /// changes nothing. Suggested: 60000.
  std::int64_t toolLimit = 0;
  /// From the beginning of a download to its last byte, however it trickles. Without the option only 5 s without a byte
  /// end one. Suggested: 60000.
  std::int64_t downloadLimit = 0;
  /// After this long without an answer to a greeting, a launch or a goodbye, one line of level 4 says so. Nothing ends.
  /// Suggested: 5000.
  std::int64_t silenceNotice = 0;
  /// A launcher that TKSInterface has started and that never answered a greeting is ended, when its start has failed or
  /// was given up, when the facade is destroyed, and when the host ends in good order (by exit or by returning from
  /// main, where this takes a second at most): asked to quit, and killed 2 s later. A host that is killed ends nobody.
  bool endSilentLauncher = false;

  // Transport.

  /// Pipes to the launcher stay on private descriptors: standard input and output of this process are left as they are.
  /// The launcher has its ends on 0 and 1 all the same.
  bool privatePipes = false;
  /// The first message over files is taken only when the launcher that was started has the file open for writing that
  /// the message came through. That says nothing of who else has: another program of the same user can still write.
  bool checkFilePeer = false;
  /// Bytes of the largest message that is accepted, when that is less than `tks_max_msg_size`. Suggested: 1048576.
  std::int64_t largestFrame = 0;
  /// Downloads, with all that they are redirected to, go over https alone.
  bool httpsOnly = false;
  /// A list of updates must hold an entry with "expires", whole seconds from 1970-01-01 00:00 UTC, that are not over.
  bool listExpiry = false;
  /// A list of updates must hold an entry with "listVersion", a whole number not below this one.
  std::int64_t lowestListVersion = 0;
  /// Names of the variables that the environment of the launcher's process is reduced to, as far as this process has
  /// them. For launchers that are started as a child of this process. Suggested: HOME, USER, LOGNAME, PATH, TMPDIR,
  /// LANG, and what the user's desktop needs.
  std::vector<std::string> launcherEnvironment{};

  // Trust. In test mode none of these is looked at when a launcher is started, unless `refuseTestMode` is on. A
  // launcher that is refused is a failure with the reason `notTrusted`, or `wrongVersion`.

  /// Before each start the content of the launcher is checked as it is before an installation: every page, resource and
  /// nested code. One that was not changed since a check in this process is not read again.
  bool checkContent = false;
  /// The SHA-256, 64 hexadecimal digits, of the root that the maker's certificates have to lead to by good signatures:
  /// at installing, launching and for lists of updates, beside the root that the library was built with.
  std::string pinnedRoot{};
  /// The organizational unit that the signer's certificate has to have, and the team that the signature has to name, at
  /// the same moments.
  std::string pinnedTeam{};
  /// The identifier that the launcher's signature has to have, at installing and launching.
  std::string requiredIdentifier{};
  /// No launcher is installed or started that is older than one that was accepted in the same place before. The highest
  /// version is kept in a hidden file beside the launcher; who may write to the folder may remove it.
  bool refuseDowngrades = false;
  /// No launcher is started or replaced, and no archive is installed, that another user than this one and the superuser
  /// can write to, or to a folder on the way to it.
  bool refuseShared = false;
  /// Nobody is a lab device: the preference `IsLabDevice` skips no check.
  bool refuseTestMode = false;
  /// All code inside of the launcher has to be signed by who signed the launcher, at installing and launching.
  bool oneSignerInside = false;

  // Privacy.

  /// The text of a received message is masked before it gets into any line or error, what the launcher says in an
  /// error of its own as well.
  bool maskReceived = false;
  /// The text of a received message that cannot be understood, which may repeat the parameters of a launch, gets into
  /// no error: its length does. What the launcher says in an error of its own is reported all the same.
  bool noMessagesInErrors = false;
  /// Conversations over files go on without names: files and folder are removed as soon as the launcher has answered
  /// the greeting, and has both open by that. For launchers with this library, 0.1.0 or later, or others that go by
  /// what they have open.
  bool unlinkMessageFiles = false;

  // Installing.

  /// A launcher that is found broken is not removed; for those who develop one.
  bool keepBrokenLauncher = false;
  /// A replaced launcher is kept, hidden beside the new one, until the next is replaced; when the health check finds
  /// the launcher broken, the kept one is checked and put back.
  bool keepPreviousLauncher = false;
  /// The quarantine mark of a launcher is removed only after it was checked: at a launch through the workspace after
  /// the check of its maker, at an installation after the health check.
  bool quarantineUntilChecked = false;
  /// The system looks through a launcher when it was installed, and not when it is started first. macOS 14.4 and later;
  /// on Linux it is assessed once more.
  bool scanAhead = false;

  /// Options by their names: numbers for times and sizes, true and false, texts, arrays of texts. Nothing, and `error`,
  /// for a name that no option has, a value of another kind, and one out of its range. Any thread.
  static std::optional<TKSOptions> optionsFromDictionary(const TKSDictionary& values, TKSError* error = nullptr);
  /// Those that are on, by their names. Any thread.
  TKSDictionary dictionary() const;

  /// Sets the options of this process, for every facade and every operation, in place of all that were set before.
  /// False, and `error`, for values out of their range, and once the library has used those it has: with the first
  /// start, launch, installation or list of updates. Any thread.
  static bool setOptions(const TKSOptions& options, TKSError* error = nullptr);
  /// The options of this process. Any thread.
  static TKSOptions options();

  friend bool operator==(const TKSOptions&, const TKSOptions&) = default;
};
