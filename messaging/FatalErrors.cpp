#include "messaging/FatalErrors.h"

namespace tks::messaging {
namespace {

struct KnownText {
  std::string_view part;
  TKSErrorReason reason;
};

/// Parts of the texts that TKSMessageHost and the facade report. The first one found decides.
constexpr KnownText kTexts[] = {
    // First, because the received text follows it and may hold any of the others.
    {"Error when parse JSON in [TKSMessagHost onMessage].", TKSErrorReason::badMessage},
    {"Launcher process ended while message host is still open.", TKSErrorReason::endedEarly},
    {"(Empty message probably means parent or child process already exited", TKSErrorReason::endedEarly},
    {"exceed max message size: ", TKSErrorReason::badMessage},
    {"exceed max size: ", TKSErrorReason::badMessage},
    {"less than 'sizeOfSize', no pending data.", TKSErrorReason::badMessage},
    {"TKS did not answer \"", TKSErrorReason::notAnswered},
    {"Message not whole within ", TKSErrorReason::notAnswered},
    {"Message file is not open in the launcher that was started.", TKSErrorReason::notTrusted},
};

}  // namespace

TKSErrorReason reasonOfFatalError(std::string_view description) {
  for (const KnownText& text : kTexts) {
    if (description.find(text.part) != std::string_view::npos) return text.reason;
  }
  return TKSErrorReason::channelFailed;
}

}  // namespace tks::messaging
