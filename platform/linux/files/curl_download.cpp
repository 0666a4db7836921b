#include "platform/linux/files/curl_download.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/backend.h"
#include "platform/linux/loop/worker_thread.h"
#include "platform/linux/processes/late_functions.h"
#include "platform/platform.h"
#include "platform/posix/error_reasons.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::gnulinux {
namespace {

using platform::DownloadRequest;
using platform::DownloadResult;
using std::chrono::steady_clock;

/// The errors of the platform's own URL loading: hosts see the same numbers and texts on every system.
struct KnownError {
  CURLcode code;
  int number;
  const char* text;
};

constexpr const char* kURLErrorDomain = "NSURLErrorDomain";
constexpr KnownError kUnknown{CURLE_OK, -1, "unknown error"};
constexpr KnownError kErrors[] = {
    {CURLE_UNSUPPORTED_PROTOCOL, -1002, "unsupported URL"},
    {CURLE_URL_MALFORMAT, -1000, "bad URL"},
    {CURLE_COULDNT_RESOLVE_HOST, -1003, "A server with the specified hostname could not be found."},
    {CURLE_COULDNT_CONNECT, -1004, "Could not connect to the server."},
    {CURLE_OPERATION_TIMEDOUT, -1001, "The request timed out."},
    {CURLE_TOO_MANY_REDIRECTS, -1007, "too many HTTP redirects"},
    {CURLE_PARTIAL_FILE, -1005, "The network connection was lost."},
    {CURLE_RECV_ERROR, -1005, "The network connection was lost."},
    {CURLE_SEND_ERROR, -1005, "The network connection was lost."},
    {CURLE_GOT_NOTHING, -1005, "The network connection was lost."},
    {CURLE_HTTP2, -1005, "The network connection was lost."},
    {CURLE_BAD_CONTENT_ENCODING, -1015, "cannot decode raw data"},
    {CURLE_WEIRD_SERVER_REPLY, -1011, "The server sent something that is no answer."},
    {CURLE_FILE_COULDNT_READ_FILE, -1100, "The requested URL was not found on this server."},
    {CURLE_FILESIZE_EXCEEDED, -1103, "resource exceeds maximum size"},
    {CURLE_SSL_CONNECT_ERROR, -1200, "An SSL error has occurred and a secure connection to the server cannot be made."},
    {CURLE_SSL_CACERT_BADFILE, -1200, "The certificates of known authorities cannot be read."},
    {CURLE_PEER_FAILED_VERIFICATION, -1202,
     "The certificate for this server is invalid: a secure connection to the server cannot be made."},
};

TKSError errorOf(CURLcode code, const std::string& url, const char* detail) {
  const KnownError* known = &kUnknown;
  for (const KnownError& error : kErrors) {
    if (error.code == code) known = &error;
  }
  std::string text = std::string("download \"") + url + "\": " + known->text;
  if (*detail != '\0') text += std::string(" (") + detail + ")";
  return posix::systemError(kURLErrorDomain, known->number, std::move(text));
}

/// A folder for one download, of a name nobody can guess and this user alone can enter. Removed with what is in it
/// unless it is kept.
class PrivateFolder {
 public:
  bool make(TKSError* error) {
    const std::string temporary = platform::knownFolders().temporary();
    std::string path = temporary + "/tksinterface-download-XXXXXX";
    if (temporary.empty() || ::mkdtemp(path.data()) == nullptr) return posix::fail(error, "create folder", path);
    path_ = std::move(path);
    return true;
  }
  ~PrivateFolder() {
    if (!path_.empty()) platform::files().remove(path_, nullptr);
  }
  std::string file() const { return path_ + "/download"; }
  void keep() { path_.clear(); }

 private:
  std::string path_;
};

/// One transfer: the file it goes to and the limits it has to stay within.
class Transfer {
 public:
  Transfer(const CurlFunctions& curl, const DownloadRequest& request, const std::string& authorities)
      : curl_(curl), request_(request), authorities_(authorities), lastByte_(steady_clock::now()) {}

  DownloadResult run() {
    DownloadResult result;
    PrivateFolder folder;
    TKSError error;
    if (!folder.make(&error) || !openFile(folder.file(), &error)) {
      result.error = std::move(error);
      return result;
    }
    perform(result);
    if (result.error) return result;
    result.location = folder.file();
    folder.keep();
    return result;
  }

 private:
  using Handle = std::unique_ptr<CURL, decltype(CurlFunctions::curl_easy_cleanup)>;

  bool openFile(const std::string& path, TKSError* error) {
    file_ = posix::FileDescriptor(
        posix::retried([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); }));
    return file_ || posix::fail(error, "create", path);
  }

  void perform(DownloadResult& result) {
    if (const std::optional<CURLcode> reason = reasonAgainst()) {
      result.error = errorOf(*reason, request_.url.absoluteString(), "");
      return;
    }
    const Handle handle(curl_.curl_easy_init(), curl_.curl_easy_cleanup);
    if (!handle) {
      result.error = errorOf(CURLE_FAILED_INIT, request_.url.absoluteString(), "");
      return;
    }
    prepare(handle.get());
    const CURLcode code = curl_.curl_easy_perform(handle.get());
    if (writeError_) {
      result.error = std::move(writeError_);
    } else if (code != CURLE_OK) {
      result.error = errorOf(failure_.value_or(code), request_.url.absoluteString(), failure_ ? "" : detail_.data());
    }
    long status = 0;
    curl_.curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != 0) result.statusCode = static_cast<int>(status);
  }

  /// What libcurl would guess at or wait for: an address without a scheme, a pipe under a file's name.
  std::optional<CURLcode> reasonAgainst() const {
    if (request_.url.scheme().empty()) return CURLE_UNSUPPORTED_PROTOCOL;
    struct stat facts {};
    if (!request_.url.isFileURL()) return std::nullopt;
    if (request_.httpsOnly) return CURLE_UNSUPPORTED_PROTOCOL;
    const std::string path = request_.url.path();
    if (posix::isPath(path) && (::stat(path.c_str(), &facts) != 0 || S_ISREG(facts.st_mode))) return std::nullopt;
    return CURLE_FILE_COULDNT_READ_FILE;
  }

  void prepare(CURL* handle) {
    curl_.curl_easy_setopt(handle, CURLOPT_URL, request_.url.absoluteString().c_str());
    curl_.curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, request_.httpsOnly ? "https" : "http,https,file");
    curl_.curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, request_.httpsOnly ? "https" : "http,https");
    // A server that packs its body nevertheless is unpacked as it comes, and counted as it is then.
    curl_.curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "identity");
    curl_.curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_.curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 16L);
    curl_.curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);  // background threads block every signal
    curl_.curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.idleTimeout.count()));
    curl_.curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(request_.totalTimeout.count()));
    curl_.curl_easy_setopt(handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(request_.limit));
    curl_.curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, detail_.data());
    curl_.curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Transfer::onBytes);
    curl_.curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    curl_.curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    curl_.curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
    curl_.curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_.curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    curl_.curl_easy_setopt(handle, CURLOPT_XFERINFODATA, this);
    if (!authorities_.empty()) curl_.curl_easy_setopt(handle, CURLOPT_CAINFO, authorities_.c_str());
  }

  static std::size_t onBytes(char* bytes, std::size_t, std::size_t count, void* self) {
    return static_cast<Transfer*>(self)->take({bytes, count}) ? count : 0;
  }

  /// Lines of a header are bytes too.
  static std::size_t onHeader(char*, std::size_t, std::size_t count, void* self) {
    static_cast<Transfer*>(self)->lastByte_ = steady_clock::now();
    return count;
  }

  bool take(std::span<const char> bytes) {
    lastByte_ = steady_clock::now();
    received_ += bytes.size();
    if (received_ > request_.limit) {
      failure_ = CURLE_FILESIZE_EXCEEDED;
      return false;
    }
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    if (posix::writeAll(file_.get(), {data, bytes.size()})) return true;
    writeError_ = posix::posixError(errno, "write", "download");
    return false;
  }

  /// Called about once a second and whenever something moves; anything but 0 ends the transfer.
  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& transfer = *static_cast<Transfer*>(self);
    if (steady_clock::now() - transfer.lastByte_ < transfer.request_.idleTimeout) return 0;
    transfer.failure_ = CURLE_OPERATION_TIMEDOUT;
    return 1;
  }

  const CurlFunctions& curl_;
  const DownloadRequest& request_;
  const std::string& authorities_;
  posix::FileDescriptor file_;
  std::size_t received_ = 0;
  steady_clock::time_point lastByte_;
  std::optional<CURLcode> failure_;
  std::optional<TKSError> writeError_;
  std::array<char, CURL_ERROR_SIZE> detail_{};
};

/// The functions of libcurl, ready to be used.
const CurlFunctions* preparedCurl(std::string& reason) {
  const CurlFunctions* const curl = lateFunctions<CurlFunctions>(reason);
  static std::once_flag prepared;
  if (curl != nullptr) std::call_once(prepared, [curl] { curl->curl_global_init(CURL_GLOBAL_DEFAULT); });
  return curl;
}

/// Somebody waits for the result, so there is one even without memory.
DownloadResult download(const DownloadRequest& request, const std::string& authorities) {
  DownloadResult result;
  try {
    std::string reason;
    if (const CurlFunctions* const curl = preparedCurl(reason)) return Transfer(*curl, request, authorities).run();
    result.error = makeError(TKSErrorReason::toolMissing, kURLErrorDomain, kUnknown.number,
                             "download \"" + request.url.absoluteString() + "\": " + reason);
  } catch (const std::bad_alloc&) {
    setOutOfMemory(&result.error.emplace());
  }
  return result;
}

}  // namespace

void CurlDownload::start(const DownloadRequest& request, std::function<void(DownloadResult)> done) {
  // Not a thread of the pool: its work may wait for this download.
  const int refused = startWorkerThread([request, authorities = authorities_, done] {
    // The file is closed before anybody learns of it.
    DownloadResult result = download(request, authorities);
    // And what OpenSSL keeps for this thread is gone: who learns of it may end the process before the thread has ended.
    ::OPENSSL_thread_stop();
    callHost("download", done, std::move(result));
  });
  if (refused == 0) return;
  DownloadResult result;
  result.error = posix::posixError(refused, "start a thread for the download of", request.url.absoluteString());
  done(std::move(result));
}

}  // namespace tks::gnulinux

namespace tks::platform {

template <>
Download& backend<Download>() {
  static auto& download = *new gnulinux::CurlDownload;
  return download;
}

}  // namespace tks::platform
