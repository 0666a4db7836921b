#include <tksinterface/TKSMessageHost.h>

#include <exception>
#include <functional>
#include <optional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSLaunchVocabulary.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "foundation/logging/HeldLines.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "messaging/FileHosts.h"
#include "messaging/Frame.h"
#include "messaging/FrameReader.h"
#include "messaging/HostAccess.h"
#include "messaging/MessageFiles.h"
#include "messaging/MessageText.h"
#include "messaging/SendingQueue.h"
#include "platform/platform.h"

using tks::masked;
using tks::messaging::kHeaderBytes;
using tks::messaging::largestMessage;
using tks::messaging::MessageFiles;
using tks::messaging::MessageFolderHold;

namespace {

std::string launchArgument(std::string_view name) {
  return std::string(tks::platform::preferences().argument(name).text());
}

void appendPiece(TKSData& receivedData, std::string_view bytes) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "receivedData size old: %u", receivedData.size());
  const auto* const first = reinterpret_cast<const TKSData::value_type*>(bytes.data());  // so that it is one copy
  receivedData.insert(receivedData.end(), first, first + bytes.size());
  TKSILog::logWithLevel(TKSILogLevelInfo, "receivedData size new: %u", receivedData.size());
}

MessageFiles pathsOf(const TKSMessageHost& host) {
  return {host.tempIPCFileFullPathFromTKS2Interface, host.tempIPCFileFullPathFromInterface2TKS};
}

std::string_view textOf(const TKSData& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

}  // namespace

/// The conversation that a host was in when an operation began. Delegates may end it, begin another one and destroy the
/// host while they are called.
class TKSMessageHost::Conversation {
 public:
  explicit Conversation(const TKSMessageHost& host) : current_(host.conversation_), mine_(*host.conversation_) {}
  /// Another one has begun, or the host is gone. A conversation that was only closed is not over in this sense: what is
  /// left to do for it writes its lines.
  bool isOver() const { return *current_ != mine_; }

 private:
  const std::shared_ptr<std::uint64_t> current_;
  const std::uint64_t mine_;
};

TKSMessageHost::TKSMessageHost(std::int32_t hostType)
    : type(static_cast<std::uint64_t>(hostType)),
      output_(std::make_shared<tks::messaging::SendingQueue>()),
      conversation_(std::make_shared<std::uint64_t>(0)),
      opening_(
          std::make_unique<tks::messaging::Opening>([this] { tks::messaging::HostAccess::giveMemoryBack(*this); })) {
  chooseChannel();
}

TKSMessageHost::~TKSMessageHost() {
  ++*conversation_;
  if (tks::platform::thisProcess().refusesAsForkedCopy("close")) return;
  if (input_) input_->stop();
  output_->close();
}

TKSMessageHost& TKSMessageHost::sharedMessengeHost() {
  const tks::HeldLines lines;
  static auto& host = *new TKSMessageHost(tksMessageHostTypeTKS);
  return host;
}

void TKSMessageHost::chooseChannel() {
  const std::optional<std::string> identifier = tks::platform::bundles().mainBundleIdentifier();
  TKSILog::logWithLevel(TKSILogLevelInfo, "Got bundleIdentifier:%@", identifier ? identifier->c_str() : nullptr);
  ipcByFile = tks::messaging::talksOverFiles(identifier.value_or("")) || isFileChannelAskedFor();
  if (ipcByFile) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "TKSInterface communicates with TKS by FILE.");
  } else {
    // "standrad": kept.
    TKSILog::logWithLevel(TKSILogLevelInfo,
                          "TKSInterface/Extension communicates with TKS by PIPE with standrad input and output.");
  }
}

/// What the launch arguments say of the channel; notes the folder that they name, whichever channel it is.
bool TKSMessageHost::isFileChannelAskedFor() {
  const std::string way = launchArgument(TKSLaunchArgNameCommunicate);
  if (!way.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Got ipc way from launch args: '-%@ %@'", TKSLaunchArgNameCommunicate, way);
  }
  const bool byFile = way == TKSLaunchArgValueCommunicateFile;
  const std::string folder = launchArgument(TKSLaunchArgNameTempIPCFilePath);
  if (!folder.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Got ipcFileFolderPath from launch args: '-%@ %@'",
                          TKSLaunchArgNameTempIPCFilePath, masked(folder));
    setIPCFileFolderPath(folder);
  } else if (byFile) {
    TKSILog::logWithLevel(TKSILogLevelError, "ipcFileFolderPath is nil or empty while ipc by file!");
  }
  return byFile;
}

void TKSMessageHost::setIPCFileFolderPath(std::string_view folderPath) {
  auto [fromLauncher, fromInterface] = MessageFiles::in(folderPath);
  tempIPCFileFullPathFromTKS2Interface = std::move(fromLauncher);
  tempIPCFileFullPathFromInterface2TKS = std::move(fromInterface);
}

// Opening and closing.

void TKSMessageHost::openWithMessengeHandler(TKSMessageHandlerDelegate* handler) {
  if (tks::platform::thisProcess().refusesAsForkedCopy("openWithMessengeHandler:")) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Open message host with handler.");
  ++*conversation_;
  messageHandler = handler;
  receivedData.clear();
  pendingDataSize = 0;
  opening_->failure.reset();
  opening_->saidFarewell = false;
  if (ipcByFile) {
    createFileHandle();
  } else {
    openStandardHandles();
  }
  isOpened = true;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Open message host with handler done.");
}

void TKSMessageHost::makeReader() {
  if (input_) input_->stop();
  input_ = std::make_shared<tks::messaging::FrameReader>([this](std::string_view piece) { onMessage(piece); },
                                                         [this](const TKSError& error) { onBrokenInput(error); });
}

/// Asks for the handles at each opening: a pipe-mode launch may have put others in their place. The reader stays, with
/// what it read ahead.
void TKSMessageHost::openStandardHandles() {
  TKSError error;
  if (!input_) makeReader();
  output_->open(tks::platform::channels().standardOutput(&error));
  if (auto source = tks::platform::channels().standardInput(&error)) {
    input_->start(std::move(source));
  } else {
    input_->startBroken(error);
  }
}

void TKSMessageHost::createFileHandle() {
  if (type == static_cast<std::uint64_t>(tksMessageHostTypeInterface)) {
    const MessageFiles files = pathsOf(*this);
    std::shared_ptr<MessageFolderHold> hold = opening_->hold;
    if (!hold || hold->folder() != files.folder()) hold = std::make_shared<MessageFolderHold>(files.folder());
    opening_->hold = hold;
    tks::messaging::checkIpcFile4Interface(files, hold->folderIsNew());
    hold->settle(files);
    openFiles(tempIPCFileFullPathFromTKS2Interface, tempIPCFileFullPathFromInterface2TKS);
  } else if (type == static_cast<std::uint64_t>(tksMessageHostTypeTKS)) {
    tks::messaging::checkIpcFile4TKS(pathsOf(*this));
    openFiles(tempIPCFileFullPathFromInterface2TKS, tempIPCFileFullPathFromTKS2Interface);
  }
}

/// New handles, read from the beginning. A file that cannot be opened leaves its direction without a handle; where that
/// was not to be seen from the lines about the files, it has one of its own.
void TKSMessageHost::openFiles(const std::string& inputPath, const std::string& outputPath) {
  makeReader();
  output_->abandon();
  TKSError error;
  if (inputPath.empty()) {
    opening_->failure =
        tks::makeError(TKSErrorReason::noSafeFolder, TKSUtilErrorDomain, 0, "There is no folder for message files.");
    return;
  }
  if (auto source = tks::platform::channels().fileSource(inputPath, &error)) {
    input_->start(std::move(source));
  } else {
    onUnopenedFile(inputPath, error);
  }
  if (auto sink = tks::platform::channels().fileSink(outputPath, &error)) {
    output_->open(std::move(sink));
  } else {
    onUnopenedFile(outputPath, error);
  }
}

void TKSMessageHost::onUnopenedFile(const std::string& path, const TKSError& error) {
  if (!opening_->failure) opening_->failure = error;
  if (!tks::platform::files().exists(path)) return;
  const std::string text = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Open message channel failed: %@", masked(text));
}

void TKSMessageHost::close() {
  if (tks::platform::thisProcess().refusesAsForkedCopy("close")) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host.");
  if (input_) input_->stop();
  if (ipcByFile) {
    destroyFileHandle();
  } else {
    output_->close();
    if (isOpened && input_ && input_->channel()) {
      tks::platform::channels().endOfTalk(*input_->channel(), opening_->saidFarewell);
    }
  }
  isOpened = false;
  messageHandler = nullptr;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host done.");
}

void TKSMessageHost::destroyFileHandle() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "destroyFileHandle");
  input_.reset();
  output_->abandon();
  if (type == static_cast<std::uint64_t>(tksMessageHostTypeInterface)) {
    tks::messaging::removeMessageFolder(pathsOf(*this));
    opening_->hold.reset();
  }
  tempIPCFileFullPathFromTKS2Interface.clear();
  tempIPCFileFullPathFromInterface2TKS.clear();
}

// Sending.

void TKSMessageHost::sendMessage(const TKSMessage& message) { tks::messaging::HostAccess::handOver(*this, message); }

// Receiving.

void TKSMessageHost::onMessage(std::string_view piece) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "On message.");
  if (!isOpened) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Message host not opened.");
    return;
  }
  if (ipcByFile && piece.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "messageData is nil or empty and ipc by File, ignore this message!");
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "messageDataSize: %lu", piece.size());
  if (!isAcceptable(piece)) return;
  TKSILog::logWithLevel(TKSILogLevelInfo, "Valid message data size, get on processing.");

  const Conversation here(*this);
  if (pendingDataSize > 0) {
    continueMessage(piece);
  } else {
    beginMessage(piece);
  }
  if (here.isOver()) return;
  if (receivedData.size() > largestMessage()) {
    handleFatalError(tks::formatted("Received total message data (%lu) exceed max size: %u.", receivedData.size(),
                                    largestMessage()));
    if (here.isOver()) return;
  }
  if (pendingDataSize > 0) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "No complete message, wait for next message portion.");
    return;
  }
  deliverMessage();
}

/// Whether a piece can be processed; reports the fatal error otherwise.
bool TKSMessageHost::isAcceptable(std::string_view piece) {
  const std::size_t size = piece.size();
  if (size > largestMessage()) {
    handleFatalError(
        tks::formatted("Unexpected message data size: %lu, exceed max message size: %i", size, tks_max_msg_size));
    return false;
  }
  if (pendingDataSize == 0 && size < kHeaderBytes) {
    std::string text = tks::formatted("Message data size ( %lu ) less than 'sizeOfSize', no pending data.", size);
    if (size == 0) {
      text +=
          " (Empty message probably means parent or child process already exited, while current message host is still "
          "open.)";
    }
    handleFatalError(text);
    return false;
  }
  if (pendingDataSize > 0 && size == 0) {
    handleFatalError(tks::formatted("Message data empty ( %lu ), pending data expected.", size));
    return false;
  }
  return true;
}

/// Bytes beyond the missing ones are taken as well; they are not taken for another frame.
void TKSMessageHost::continueMessage(std::string_view piece) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Pending data expected, don't get size from header 4 bytes.");
  appendPiece(receivedData, piece);
  pendingDataSize = pendingDataSize > piece.size() ? pendingDataSize - piece.size() : 0;
  TKSILog::logWithLevel(TKSILogLevelInfo, "sizeOfSize: %u", kHeaderBytes);
  TKSILog::logWithLevel(TKSILogLevelInfo, "pendingDataSize: %u", pendingDataSize);
}

void TKSMessageHost::beginMessage(std::string_view piece) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "No pending data, get size from header 4 bytes.");
  const std::uint64_t tellingSize = tks::messaging::announcedLength(piece);
  TKSILog::logWithLevel(TKSILogLevelInfo, "sizeOfSize: %u", kHeaderBytes);
  TKSILog::logWithLevel(TKSILogLevelInfo, "tellingSize: %u", tellingSize);
  std::uint64_t actualSize = tellingSize;
  if (tellingSize > largestMessage()) {
    // Goes on with no data at all: the empty text is parsed, and that failure is reported as well.
    actualSize = 0;
    const Conversation here(*this);
    handleFatalError(
        tks::formatted("Unexpected telling data size: %i, exceed max message size: %i", tellingSize, tks_max_msg_size));
    if (here.isOver()) return;
  } else if (piece.size() < tellingSize + kHeaderBytes) {
    actualSize = piece.size() - kHeaderBytes;
    pendingDataSize = tellingSize - actualSize;
  } else if (piece.size() > tellingSize + kHeaderBytes) {
    TKSILog::logWithLevel(TKSILogLevelWarning,
                          "Dirty data inside message data, 'tellingSize + sizeOfSize < messageDataSize', only read "
                          "telling size of data. Get on processing.");
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "actualDataSize: %u", actualSize);
  TKSILog::logWithLevel(TKSILogLevelInfo, "pendingDataSize: %u", pendingDataSize);
  appendPiece(receivedData, piece.substr(kHeaderBytes, static_cast<std::size_t>(actualSize)));
}

/// Parses what was received and hands it to the delegate.
void TKSMessageHost::deliverMessage() {
  // Out of its place before anything else runs; the room goes back as soon as the text is no longer needed.
  TKSData data = std::exchange(receivedData, {});
  const tks::messaging::ReceivedText text(textOf(data));
  TKSILog::logWithLevel(TKSILogLevelInfo, "Receive message string: %@", text);

  opening_->largeFrames.note(data.size());
  TKSMessage message;
  TKSError error;
  const bool parsed = message.parseJSONString(textOf(data), &error);
  std::string failure;
  if (!parsed) {
    failure =
        tks::formatted("Error when parse JSON in [TKSMessagHost onMessage]. Message str: %@, error: %@", text, error);
  }
  data.clear();
  if (receivedData.empty()) receivedData = std::move(data);

  if (!parsed) {
    handleFatalError(failure);
    return;
  }
  if (message.messageType == tks_message_type_disconnect_ack) opening_->saidFarewell = true;
  TKSMessageHandlerDelegate* const handler = messageHandler;
  if (handler == nullptr) return;
  const std::function<void()> deliver = [handler, &message] { handler->handleMessage(message, handler); };
  tks::callHost("handleMessage:from:", deliver);
}

void TKSMessageHost::handleFatalError(const std::string& description) {
  TKSILog::logWithLevel(TKSILogLevelError, "Handle fatal error: %@", masked(description));
  TKSMessageHandlerDelegate* const handler = messageHandler;
  if (handler == nullptr) return;
  const std::function<void()> report = [handler, &description] { handler->handleMessageHostFatalError(description); };
  tks::callHost("handleMessageHostFatalError:", report);
}

/// A broken pipe looks like its end to the conversation, which is told again and again. A file has no end, so that its
/// failure is told as it is, once for each opening; after a farewell its removal is the end of the conversation.
void TKSMessageHost::onBrokenInput(const TKSError& error) {
  const std::string reason = error.description();
  if (ipcByFile) {
    input_->stop();
    if (!opening_->saidFarewell) handleFatalError(tks::formatted("Read message failed: %@", reason));
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelError, "Read message failed: %@", masked(reason));
  onMessage({});
}
