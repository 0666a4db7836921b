#import <Foundation/Foundation.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/apple/conversions.h"
#include "platform/apple/download_bound.h"
#include "platform/apple/guarded.h"
#include "platform/backend.h"
#include "platform/download.h"
#include "platform/platform.h"
#include "platform/posix/error_reasons.h"
#include "platform/posix/posix_error.h"

/// Follows no answer to another address than one with https.
@interface TKSHttpsRedirects : NSObject <NSURLSessionTaskDelegate>
@end

@implementation TKSHttpsRedirects
- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest*))completionHandler {
  const BOOL isHttps = [request.URL.scheme.lowercaseString isEqualToString:@"https"];
  if (!isHttps) [task cancel];
  completionHandler(isHttps ? request : nil);
}
@end

namespace tks::platform {
namespace {

bool isHttps(NSURL* url) { return [url.scheme.lowercaseString isEqualToString:@"https"]; }

bool isAllowed(NSURL* url, const DownloadRequest& request) {
  NSString* scheme = url.scheme.lowercaseString;
  if (isHttps(url) || request.httpsOnly) return isHttps(url);
  return [scheme isEqualToString:@"http"] || [scheme isEqualToString:@"file"];
}

TKSError refusal(NSInteger code, const std::string& address, std::string_view reason) {
  return posix::systemError("NSURLErrorDomain", static_cast<std::int64_t>(code),
                            std::string("download \"").append(address).append("\": ").append(reason));
}

/// The session's own copy goes away when its handler returns: takes the file into a private folder. Answers its path;
/// empty, and `error`, when that fails.
std::string keep(NSURL* location, TKSError& error) {
  const std::string temporary = knownFolders().temporary();
  if (temporary.empty()) {
    error = posix::posixError(EACCES, "create the folder", "download");
    return {};
  }
  const std::string folder = temporary + "/tksinterface-download-" + thisProcess().randomUUID();
  if (!files().usePrivateDirectory(folder, &error)) return {};
  const std::string kept = folder + "/download";
  if (files().move(apple::fromString(location.path), kept, &error)) return kept;
  files().remove(folder, nullptr);
  return {};
}

/// What a download came to, whatever it was.
struct Outcome {
  NSURL* location = nil;
  NSURLResponse* response = nil;
  NSError* failure = nil;
  bool isTooLarge = false;
  bool isTooLate = false;
};

DownloadResult resultOf(const Outcome& outcome, const DownloadRequest& request) {
  DownloadResult result;
  if ([outcome.response isKindOfClass:NSHTTPURLResponse.class]) {
    result.statusCode = static_cast<int>(static_cast<NSHTTPURLResponse*>(outcome.response).statusCode);
  }
  NSNumber* size = nil;
  [outcome.location getResourceValue:&size forKey:NSURLFileSizeKey error:nil];
  if (outcome.isTooLarge || size.unsignedLongLongValue > request.limit) {
    result.error =
        refusal(NSURLErrorDataLengthExceedsMaximum, request.url.absoluteString(), "resource exceeds maximum size");
  } else if (outcome.isTooLate) {
    result.error = refusal(NSURLErrorTimedOut, request.url.absoluteString(), "The request timed out.");
  } else if (outcome.location == nil) {
    result.error = apple::fromError(outcome.failure, "download");
  } else {
    TKSError error;
    result.location = keep(outcome.location, error);
    if (result.location.empty()) result.error = std::move(error);
  }
  return result;
}

/// The value of a header of a response; empty when it has none.
std::string headerOf(NSURLResponse* response, NSString* name) {
  if (![response isKindOfClass:NSHTTPURLResponse.class]) return {};
  return apple::fromString([static_cast<NSHTTPURLResponse*>(response) valueForHTTPHeaderField:name]);
}

/// Ends a download that brings more than the limit, or could after unpacking, or that takes longer than it may: the
/// shared session has nobody else to ask as bytes come, and counts them as they were sent.
class Bound {
 public:
  void start(NSURLSessionTask* task, const DownloadRequest& request) {
    using Time = std::chrono::steady_clock;
    const std::size_t limit = request.limit;
    const Time::time_point end =
        request.totalTimeout.count() > 0 ? Time::now() + request.totalTimeout : Time::time_point::max();
    const std::weak_ptr<State> state = state_;
    dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
    timer_ = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue);
    dispatch_source_set_timer(timer_, dispatch_time(DISPATCH_TIME_NOW, 0), kInterval, kInterval / 10);
    dispatch_source_set_event_handler(timer_, ^{
      const std::shared_ptr<State> kept = state.lock();
      if (!kept) return;
      if (Time::now() >= end) {
        kept->isTooLate = true;
        return [task cancel];
      }
      const std::string encoding = headerOf(task.response, @"Content-Encoding");
      if (!apple::isBeyond({task.countOfBytesReceived, task.countOfBytesExpectedToReceive, encoding}, limit)) return;
      kept->isTooLarge = true;
      [task cancel];
    });
    dispatch_resume(timer_);
  }
  bool isTooLarge() const { return state_->isTooLarge; }
  bool isTooLate() const { return state_->isTooLate; }
  void stop() {
    if (timer_ != nil) dispatch_source_cancel(timer_);
  }

 private:
  static constexpr std::uint64_t kInterval = NSEC_PER_SEC / 5;

  struct State {
    std::atomic<bool> isTooLarge = false;
    std::atomic<bool> isTooLate = false;
  };
  const std::shared_ptr<State> state_ = std::make_shared<State>();
  dispatch_source_t timer_ = nil;
};

/// A session that goes over https alone, for the rest of the process.
NSURLSession* httpsSession() {
  static NSURLSession* const session =
      [NSURLSession sessionWithConfiguration:NSURLSessionConfiguration.ephemeralSessionConfiguration
                                    delegate:[TKSHttpsRedirects new]
                               delegateQueue:nil];
  return session;
}

class AppleDownload final : public Download {
 public:
  void start(const DownloadRequest& request, std::function<void(DownloadResult)> done) override {
    @autoreleasepool {
      NSString* address = apple::toString(request.url.absoluteString());
      NSURL* url = address == nil ? nil : [NSURL URLWithString:address];
      if (url == nil || !isAllowed(url, request)) {
        DownloadResult refused;
        refused.error = url == nil ? refusal(NSURLErrorBadURL, request.url.absoluteString(), "bad URL")
                                   : refusal(NSURLErrorUnsupportedURL, request.url.absoluteString(), "unsupported URL");
        dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
          apple::runGuarded("download", [&] { done(refused); });
        });
        return;
      }
      const std::chrono::duration<double> idleTimeout = request.idleTimeout;
      NSMutableURLRequest* prepared = [NSMutableURLRequest requestWithURL:url
                                                              cachePolicy:NSURLRequestReloadIgnoringLocalCacheData
                                                          timeoutInterval:idleTimeout.count()];
      [prepared setValue:@"identity" forHTTPHeaderField:@"Accept-Encoding"];
      const DownloadRequest asked = request;
      const auto bound = std::make_shared<Bound>();
      NSURLSession* session = request.httpsOnly ? httpsSession() : NSURLSession.sharedSession;
      NSURLSessionDownloadTask* task = [session
          downloadTaskWithRequest:prepared
                completionHandler:^(NSURL* location, NSURLResponse* response, NSError* failure) {
                  bound->stop();
                  apple::runGuarded("download", [&] {
                    done(resultOf({location, response, failure, bound->isTooLarge(), bound->isTooLate()}, asked));
                  });
                }];
      // Before the task runs: what ends it also ends this.
      bound->start(task, request);
      [task resume];
    }
  }
};

}  // namespace

template <>
Download& backend<Download>() {
  static auto& download = *new AppleDownload;
  return download;
}

}  // namespace tks::platform
