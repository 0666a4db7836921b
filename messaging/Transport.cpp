#include "messaging/Transport.h"

#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "messaging/ChannelChoice.h"
#include "messaging/FrameReader.h"
#include "messaging/Observation.h"
#include "messaging/SendingQueue.h"
#include "platform/platform.h"

// Opening and closing.

namespace tks::messaging {
namespace {

/// More hosts than this never start within one millisecond.
constexpr int kMostFoldersTried = 1000;

/// Adds one to the decimal number at the end of a text, which keeps its number of digits.
void countUp(std::string& text) {
  for (auto digit = text.rbegin(); digit != text.rend() && *digit >= '0' && *digit <= '9'; ++digit) {
    if (++*digit <= '9') return;
    *digit = '0';
  }
}

}  // namespace

Transport::Transport(TKSMessageHost& host)
    : host_(host), output_(std::make_shared<SendingQueue>()), largeFrames_([this] { giveMemoryBack(); }) {}

Transport::~Transport() {
  conversation_.end();
  if (platform::thisProcess().refusesAsForkedCopy("close")) return;
  if (input_) input_->stop();
  output_->close();
}

MessageFiles Transport::files() const {
  return {host_.tempIPCFileFullPathFromTKS2Interface, host_.tempIPCFileFullPathFromInterface2TKS};
}

bool Transport::isInterface() const { return host_.type == static_cast<std::uint64_t>(tksMessageHostTypeInterface); }

void Transport::tellObserver(TKSConversationEvent::Kind kind, std::string_view text) const noexcept {
  observe({.kind = kind, .side = static_cast<std::int32_t>(host_.type), .byFile = host_.ipcByFile, .text = text});
}

void Transport::chooseChannel() {
  const ChannelChoice choice = messaging::chooseChannel();
  host_.ipcByFile = choice.byFile;
  if (!choice.folder.empty()) setFolder(choice.folder);
}

void Transport::setFolder(std::string_view path) {
  MessageFiles paths = MessageFiles::in(path);
  host_.tempIPCFileFullPathFromTKS2Interface = std::move(paths.fromLauncher);
  host_.tempIPCFileFullPathFromInterface2TKS = std::move(paths.fromInterface);
}

void Transport::open(TKSMessageHandlerDelegate* delegate) {
  if (platform::thisProcess().refusesAsForkedCopy("openWithMessengeHandler:")) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Open message host with handler.");
  conversation_.end();
  host_.messageHandler = delegate;
  host_.receivedData.clear();
  host_.pendingDataSize = 0;
  failure_.reset();
  saidFarewell_ = false;
  peer_ = {};
  isNameless_ = false;
  if (host_.ipcByFile) {
    createFileHandle();
  } else {
    openStandardHandles();
  }
  host_.isOpened = true;
  tellObserver(TKSConversationEvent::Kind::opened, {});
  TKSILog::logWithLevel(TKSILogLevelInfo, "Open message host with handler done.");
}

void Transport::makeReader() {
  if (input_) input_->stop();
  input_ = std::make_shared<FrameReader>([this](std::string_view piece) { onMessage(piece); },
                                         [this](const TKSError& error) { onBrokenInput(error); },
                                         [this](std::chrono::milliseconds limit) { onSlowFrame(limit); });
}

/// Asks for the handles at each opening: a pipe-mode launch may have put others in their place. The reader stays, with
/// what it read ahead.
void Transport::openStandardHandles() {
  TKSError error;
  if (!input_) makeReader();
  output_->open(platform::channels().standardOutput(&error));
  if (auto source = platform::channels().standardInput(&error)) {
    input_->start(std::move(source));
  } else {
    input_->startBroken(error);
  }
}

void Transport::createFileHandle() {
  const MessageFiles paths = files();
  if (isInterface()) {
    std::shared_ptr<MessageFolderHold> hold = hold_;
    if (!hold || hold->folder() != paths.folder()) hold = std::make_shared<MessageFolderHold>(paths.folder());
    hold_ = hold;
    if (checkIpcFile4Interface(paths, hold->folderIsNew())) hold->takeFolderForOwn();
    hold->settle(paths);
    openFiles(paths.fromLauncher, paths.fromInterface);
  } else if (host_.type == static_cast<std::uint64_t>(tksMessageHostTypeTKS)) {
    checkIpcFile4TKS(paths);
    openFiles(paths.fromInterface, paths.fromLauncher);
  }
}

/// New handles, read from the beginning. A file that cannot be opened leaves its direction without a handle; it has its
/// own line where the lines about the files did not show that.
void Transport::openFiles(const std::string& inputPath, const std::string& outputPath) {
  makeReader();
  output_->abandon();
  TKSError error;
  if (inputPath.empty()) {
    failure_ = makeError(TKSErrorReason::noSafeFolder, TKSUtilErrorDomain, 0, "There is no folder for message files.");
    return;
  }
  if (auto source = platform::channels().fileSource(inputPath, &error)) {
    input_->start(std::move(source));
  } else {
    onUnopenedFile(inputPath, error);
  }
  if (auto sink = platform::channels().fileSink(outputPath, &error)) {
    output_->open(std::move(sink));
  } else {
    onUnopenedFile(outputPath, error);
  }
}

void Transport::onUnopenedFile(const std::string& path, const TKSError& error) {
  if (!failure_) failure_ = error;
  if (!platform::files().exists(path)) return;
  const std::string text = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Open message channel failed: %@", masked(text));
}

void Transport::close() {
  if (platform::thisProcess().refusesAsForkedCopy("close")) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host.");
  if (input_) input_->stop();
  if (host_.ipcByFile) {
    destroyFileHandle();
  } else {
    closeStandardHandles();
  }
  if (host_.isOpened) tellObserver(TKSConversationEvent::Kind::closed, {});
  host_.isOpened = false;
  host_.messageHandler = nullptr;
  failure_.reset();
  saidFarewell_ = false;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host done.");
}

void Transport::closeStandardHandles() {
  output_->close();
  if (host_.isOpened && input_ && input_->channel()) {
    platform::channels().endOfTalk(*input_->channel(), saidFarewell_);
  }
}

void Transport::destroyFileHandle() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "destroyFileHandle");
  input_.reset();
  output_->abandon();
  if (isInterface()) {
    removeMessageFolder(files(), hold_ && hold_->folderIsOwn(), isNameless_);
    hold_.reset();
  }
  host_.tempIPCFileFullPathFromTKS2Interface.clear();
  host_.tempIPCFileFullPathFromInterface2TKS.clear();
}

void Transport::dropFileNames() {
  if (!options().unlinkMessageFiles || !host_.ipcByFile || !isInterface() || isNameless_ || !input_) return;
  TKSError error;
  isNameless_ = input_->dropName(&error) && output_->dropName(&error) &&
                removeDroppedFolder(files(), hold_ && hold_->folderIsOwn(), &error);
  if (isNameless_) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "The files of the conversation have no names any more.");
    return;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelWarning, "The files of the conversation keep their place: %@", masked(reason));
}

std::string Transport::useNewFolder(std::string path) {
  std::shared_ptr<MessageFolderHold> hold;
  std::string tried = path;
  for (int i = 0; i < kMostFoldersTried; ++i, countUp(tried)) {
    hold.reset();  // first: two of them would wait for each other
    hold = std::make_shared<MessageFolderHold>(tried);
    if (hold->makeFolder(nullptr)) {
      path = std::move(tried);
      break;
    }
    if (!platform::files().exists(tried)) break;
  }
  hold_ = std::move(hold);
  setFolder(path);
  return path;
}

}  // namespace tks::messaging
