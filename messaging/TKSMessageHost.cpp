#include <tksinterface/TKSMessageHost.h>

#include <exception>
#include <functional>
#include <initializer_list>
#include <optional>
#include <utility>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSLaunchVocabulary.h>

#include "foundation/Trace.h"
#include "foundation/logging/HeldLines.h"
#include "foundation/logging/Logging.h"
#include "messaging/FileHosts.h"
#include "messaging/Frame.h"
#include "messaging/FrameReader.h"
#include "messaging/MessageText.h"
#include "messaging/SendingQueue.h"
#include "platform/platform.h"

using tks::masked;
using tks::messaging::kHeaderBytes;
using tks::messaging::largestMessage;

namespace {

constexpr std::uint32_t kFolderPermissions = 0700;
constexpr std::uint32_t kFilePermissions = 0600;

/// A folder's path with one more component; nothing for an absent folder.
std::string joined(std::string_view folder, std::string_view name) {
  if (folder.empty()) return {};
  while (folder.ends_with('/')) folder.remove_suffix(1);
  std::string path(folder);
  path += '/';
  path += name;
  return path;
}

std::string folderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(path.substr(0, slash == 0 ? 1 : slash));
}

std::string launchArgument(std::string_view name) {
  return std::string(tks::platform::preferences().argument(name).text());
}

void appendPiece(TKSData& receivedData, std::string_view bytes) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "receivedData size old: %u", receivedData.size());
  const auto* const first = reinterpret_cast<const TKSData::value_type*>(bytes.data());  // so that it is one copy
  receivedData.insert(receivedData.end(), first, first + bytes.size());
  TKSILog::logWithLevel(TKSILogLevelInfo, "receivedData size new: %u", receivedData.size());
}

std::string_view textOf(const TKSData& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

void createFolder(const std::string& folder) {
  if (tks::platform::files().exists(folder)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! Ipc file directory:%@ already exists!", masked(folder));
    return;
  }
  TKSError error;
  if (tks::platform::files().createDirectory(folder, kFolderPermissions, &error)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Create directory:%@ successfully!", masked(folder));
    return;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Failed to create directory:%@, error: %@.", masked(folder), masked(reason));
}

/// Removes the files of a conversation and then their folder, which stays when somebody put something else into it.
void removeFolder(const std::string& folder, std::initializer_list<std::string_view> conversationFiles) {
  tks::platform::Files& files = tks::platform::files();
  TKSError error;
  for (const std::string_view path : conversationFiles) {
    if (!files.isDirectory(path) || files.isLink(path)) files.remove(path, nullptr);
  }
  if (files.removeEmptyDirectory(folder, &error)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Succeed to remove ipc file folder.");
    return;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Removing ipcFile folder has error:%@", masked(reason));
}

void logOpeningFailed(const TKSError& error) {
  const std::string text = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Open message channel failed: %@", masked(text));
}

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
      conversation_(std::make_shared<std::uint64_t>(0)) {
  chooseChannel();
}

TKSMessageHost::~TKSMessageHost() {
  ++*conversation_;
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
  tempIPCFileFullPathFromTKS2Interface = joined(folderPath, tempIPCFileNameFromTKS2Interface);
  tempIPCFileFullPathFromInterface2TKS = joined(folderPath, tempIPCFileNameFromInterface2TKS);
}

// Opening and closing.

void TKSMessageHost::openWithMessengeHandler(TKSMessageHandlerDelegate* handler) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Open message host with handler.");
  ++*conversation_;
  messageHandler = handler;
  receivedData.clear();
  pendingDataSize = 0;
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
    checkIpcFile4Interface();
    openFiles(tempIPCFileFullPathFromTKS2Interface, tempIPCFileFullPathFromInterface2TKS);
  } else if (type == static_cast<std::uint64_t>(tksMessageHostTypeTKS)) {
    checkIpcFile4TKS();
    openFiles(tempIPCFileFullPathFromInterface2TKS, tempIPCFileFullPathFromTKS2Interface);
  }
}

/// New handles, read from the beginning. A file that cannot be opened is logged and leaves its direction without a
/// handle; a conversation without a folder has said so already.
void TKSMessageHost::openFiles(const std::string& inputPath, const std::string& outputPath) {
  makeReader();
  output_->abandon();
  if (inputPath.empty()) return;
  TKSError error;
  if (auto source = tks::platform::channels().fileSource(inputPath, &error)) {
    input_->start(std::move(source));
  } else {
    logOpeningFailed(error);
  }
  if (auto sink = tks::platform::channels().fileSink(outputPath, &error)) {
    output_->open(std::move(sink));
  } else {
    logOpeningFailed(error);
  }
}

void TKSMessageHost::checkIpcFile4Interface() {
  createFolder(folderOf(tempIPCFileFullPathFromTKS2Interface));

  tks::platform::Files& files = tks::platform::files();
  // The capital I is kept, unlike in the lines about the other file.
  if (files.exists(tempIPCFileFullPathFromTKS2Interface)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! IpcFile_TKS2Interface already exists!");
  } else if (files.createFile(tempIPCFileFullPathFromTKS2Interface, kFilePermissions, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Create ipcFile_TKS2Interface successfully!");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Create ipcFile_TKS2Interface failed!");
  }

  if (files.exists(tempIPCFileFullPathFromInterface2TKS)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! ipcFile_Interface2TKS already exists!");
  } else if (files.createFile(tempIPCFileFullPathFromInterface2TKS, kFilePermissions, nullptr)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Create ipcFile_Interface2TKS successfully!");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Create ipcFile_Interface2TKS failed!");
  }
}

void TKSMessageHost::checkIpcFile4TKS() {
  tks::platform::Files& files = tks::platform::files();
  const std::string folder = folderOf(tempIPCFileFullPathFromTKS2Interface);
  if (files.exists(folder)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Ipc file directory:%@ exists.", masked(folder));
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! Ipc file directory:%@ doesn't exist!", masked(folder));
  }
  if (files.exists(tempIPCFileFullPathFromTKS2Interface)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "ipcFile_TKS2Interface exists.");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! ipcFile_TKS2Interface:%@ doesn't exist!",
                          masked(tempIPCFileFullPathFromTKS2Interface));
  }
  if (files.exists(tempIPCFileFullPathFromInterface2TKS)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "ipcFile_Interface2TKS exists.");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Error! ipcFile_Interface2TKS:%@ doesn't exist!",
                          masked(tempIPCFileFullPathFromInterface2TKS));
  }
}

void TKSMessageHost::close() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Close message host.");
  if (input_) input_->stop();
  if (ipcByFile) {
    destroyFileHandle();
  } else {
    output_->close();
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
    removeFolder(folderOf(tempIPCFileFullPathFromTKS2Interface),
                 {tempIPCFileFullPathFromTKS2Interface, tempIPCFileFullPathFromInterface2TKS});
  }
  tempIPCFileFullPathFromTKS2Interface.clear();
  tempIPCFileFullPathFromInterface2TKS.clear();
}

// Sending.

void TKSMessageHost::sendMessage(const TKSMessage& message) {
  tks::trace("TKSMessageHost", "sendMessage:");
  try {
    std::string frame = output_->takeBuffer();
    TKSError error;
    tks::messaging::beginFrame(frame);
    const bool hasText = tks::messaging::appendText(message, frame, &error);
    const std::string_view text = hasText ? tks::messaging::payloadOf(frame) : std::string_view("(null)");
    TKSILog::logWithLevel(TKSILogLevelInfo, "Send message string: %@", masked(text));
    if (!hasText) {
      const std::string reason = error.description();
      TKSILog::logWithLevel(TKSILogLevelError, "Parse TKSMessage to string failed: %@", masked(reason));
      return;
    }
    if (!isOpened) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "Message host already closed, abandon sending message.");
      return;
    }
    if (!tks::messaging::finishFrame(frame)) {
      TKSILog::logWithLevel(TKSILogLevelError, "Transfer string to data blob failed.");
      return;
    }
    tks::trace("TKSMessageHost", "sendMessage:");
    output_->send(std::move(frame));
  } catch (const std::exception&) {
    TKSILog::logWithLevel(TKSILogLevelError, "Transfer string to data blob failed.");
  }
}

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

/// A broken pipe looks like its end to the conversation. A file has no end, so that its failure is told as it is.
void TKSMessageHost::onBrokenInput(const TKSError& error) {
  const std::string reason = error.description();
  if (ipcByFile) {
    handleFatalError(tks::formatted("Read message failed: %@", reason));
    return;
  }
  TKSILog::logWithLevel(TKSILogLevelError, "Read message failed: %@", masked(reason));
  onMessage({});
}
