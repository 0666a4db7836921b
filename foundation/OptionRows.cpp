#include <algorithm>

#include "foundation/Options.h"

// The table of options. One row a field of TKSOptions, in the order of the header.

namespace tks {
namespace {

constexpr std::string_view kMs = "ms";
constexpr std::string_view kBytes = "bytes";
constexpr std::string_view kSha256 = "SHA-256";
constexpr std::string_view kNone;

constexpr OptionRow kRows[] = {
    // Time limits.
    {"helloLimit", &TKSOptions::helloLimit, kMs, "A greeting that is not answered in time has failed."},
    {"launchLimit", &TKSOptions::launchLimit, kMs, "A launch request that is not answered in time has failed."},
    {"disconnectLimit", &TKSOptions::disconnectLimit, kMs, "A goodbye that is not answered in time has failed."},
    {"frameLimit", &TKSOptions::frameLimit, kMs, "A message that is not whole in time breaks the conversation."},
    {"toolLimit", &TKSOptions::toolLimit, kMs, "A tool of the system that runs longer is ended."},
    {"downloadLimit", &TKSOptions::downloadLimit, kMs, "A download that is not complete in time has failed."},
    {"silenceNotice", &TKSOptions::silenceNotice, kMs, "A line tells of an answer that takes longer."},
    {"endSilentLauncher", &TKSOptions::endSilentLauncher, kNone,
     "A launcher that never answered is ended when its host gives up or ends."},

    // Transport.
    {"privatePipes", &TKSOptions::privatePipes, kNone,
     "Pipes to the launcher leave this process's standard handles as they are."},
    {"checkFilePeer", &TKSOptions::checkFilePeer, kNone,
     "Messages over files are taken only when the started launcher has the file open."},
    {"largestFrame", &TKSOptions::largestFrame, kBytes, "A longer message is refused."},
    {"httpsOnly", &TKSOptions::httpsOnly, kNone, "Downloads go over https alone."},
    {"listExpiry", &TKSOptions::listExpiry, kNone, "A list of updates must say when it expires, and not be expired."},
    {"lowestListVersion", &TKSOptions::lowestListVersion, kNone, "A list of updates with a lower version is refused."},
    {"launcherEnvironment", &TKSOptions::launcherEnvironment, kNone,
     "The launcher's environment has these variables and no other."},

    // Trust.
    {"checkContent", &TKSOptions::checkContent, kNone, "The launcher's content is checked before each start."},
    {"pinnedRoot", &TKSOptions::pinnedRoot, kSha256, "The maker's certificates have to lead to this root."},
    {"pinnedTeam", &TKSOptions::pinnedTeam, kNone, "The signer's certificate has to be of this team."},
    {"requiredIdentifier", &TKSOptions::requiredIdentifier, kNone,
     "The launcher's signature has to have this identifier."},
    {"refuseDowngrades", &TKSOptions::refuseDowngrades, kNone,
     "A launcher that is older than one accepted before is refused."},
    {"refuseShared", &TKSOptions::refuseShared, kNone, "A launcher or archive that others can write to is refused."},
    {"refuseTestMode", &TKSOptions::refuseTestMode, kNone, "Lab devices are checked like all others."},
    {"oneSignerInside", &TKSOptions::oneSignerInside, kNone,
     "All code inside of the launcher has to be of its signer."},

    // Privacy.
    {"maskReceived", &TKSOptions::maskReceived, kNone, "Received messages are masked wherever they appear."},
    {"noMessagesInErrors", &TKSOptions::noMessagesInErrors, kNone,
     "Errors hold no text of messages that could not be understood."},
    {"unlinkMessageFiles", &TKSOptions::unlinkMessageFiles, kNone,
     "Files of a conversation are removed once both sides have them open."},

    // Installing.
    {"keepBrokenLauncher", &TKSOptions::keepBrokenLauncher, kNone, "A broken launcher is not removed."},
    {"keepPreviousLauncher", &TKSOptions::keepPreviousLauncher, kNone,
     "A replaced launcher is kept, and put back when the new one turns out broken."},
    {"quarantineUntilChecked", &TKSOptions::quarantineUntilChecked, kNone,
     "The quarantine mark is removed only after the check."},
    {"scanAhead", &TKSOptions::scanAhead, kNone, "The system looks through a launcher when it was installed."},
};

}  // namespace

std::span<const OptionRow> optionRows() { return kRows; }

bool isOn(const OptionRow& row, const TKSOptions& options) {
  static const TKSOptions off;
  return std::visit([&](const auto field) { return options.*field != off.*field; }, row.field);
}

}  // namespace tks
