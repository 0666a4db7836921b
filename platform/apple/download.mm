#import <Foundation/Foundation.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/apple/conversions.h"
#include "platform/apple/guarded.h"
#include "platform/backend.h"
#include "platform/download.h"

namespace tks::platform {
namespace {

bool isAllowed(NSURL* url) {
  NSString* scheme = url.scheme.lowercaseString;
  return [scheme isEqualToString:@"https"] || [scheme isEqualToString:@"http"] || [scheme isEqualToString:@"file"];
}

/// The session's own copy goes away when its handler returns: takes the file into a private folder.
NSString* keep(NSURL* location, NSError** failure) {
  NSFileManager* manager = NSFileManager.defaultManager;
  NSString* folder = [NSTemporaryDirectory() stringByAppendingPathComponent:NSUUID.UUID.UUIDString];
  if (![manager createDirectoryAtPath:folder
          withIntermediateDirectories:YES
                           attributes:@{
                             NSFilePosixPermissions : @0700
                           }
                                error:failure]) {
    return nil;
  }
  NSString* kept = [folder stringByAppendingPathComponent:@"download"];
  if ([manager moveItemAtPath:location.path toPath:kept error:failure]) return kept;
  [manager removeItemAtPath:folder error:nil];
  return nil;
}

DownloadResult resultOf(NSURL* location, NSURLResponse* response, NSError* failure, std::size_t limit,
                        bool isTooLarge) {
  DownloadResult result;
  if ([response isKindOfClass:NSHTTPURLResponse.class]) {
    result.statusCode = static_cast<int>(static_cast<NSHTTPURLResponse*>(response).statusCode);
  }
  NSNumber* size = nil;
  [location getResourceValue:&size forKey:NSURLFileSizeKey error:nil];
  if (isTooLarge || (location != nil && size.unsignedLongLongValue > limit)) {
    result.error = TKSError{"NSURLErrorDomain", NSURLErrorDataLengthExceedsMaximum, "the download is too large"};
    return result;
  }
  NSString* kept = location == nil ? nil : keep(location, &failure);
  if (kept == nil) {
    result.error = apple::fromError(failure, "download");
  } else {
    result.location = apple::fromString(kept);
  }
  return result;
}

/// Ends a download that brings more than the limit: the shared session has nobody else to ask as bytes come.
class Bound {
 public:
  void start(NSURLSessionTask* task, std::size_t limit) {
    const std::weak_ptr<std::atomic<bool>> exceeded = exceeded_;
    dispatch_queue_t queue = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
    timer_ = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue);
    dispatch_source_set_timer(timer_, dispatch_time(DISPATCH_TIME_NOW, 0), kInterval, kInterval / 10);
    dispatch_source_set_event_handler(timer_, ^{
      const std::shared_ptr<std::atomic<bool>> kept = exceeded.lock();
      const std::int64_t most = std::max(task.countOfBytesReceived, task.countOfBytesExpectedToReceive);
      if (!kept || most <= 0 || static_cast<std::uint64_t>(most) <= limit) return;
      *kept = true;
      [task cancel];
    });
    dispatch_resume(timer_);
  }
  bool exceeded() const { return *exceeded_; }
  void stop() {
    if (timer_ != nil) dispatch_source_cancel(timer_);
  }

 private:
  static constexpr std::uint64_t kInterval = NSEC_PER_SEC / 5;

  std::shared_ptr<std::atomic<bool>> exceeded_ = std::make_shared<std::atomic<bool>>(false);
  dispatch_source_t timer_ = nil;
};

class AppleDownload final : public Download {
 public:
  void start(const DownloadRequest& request, std::function<void(DownloadResult)> done) override {
    @autoreleasepool {
      NSString* address = apple::toString(request.url.absoluteString());
      NSURL* url = address == nil ? nil : [NSURL URLWithString:address];
      if (url == nil || !isAllowed(url)) {
        DownloadResult refused;
        refused.error = TKSError{"NSURLErrorDomain", NSURLErrorUnsupportedURL, "unsupported URL"};
        dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
          apple::runGuarded("download", [&] { done(refused); });
        });
        return;
      }
      NSURLRequest* prepared = [NSURLRequest requestWithURL:url
                                                cachePolicy:NSURLRequestReloadIgnoringLocalCacheData
                                            timeoutInterval:std::chrono::duration<double>(request.idleTimeout).count()];
      const std::size_t limit = request.limit;
      const auto bound = std::make_shared<Bound>();
      NSURLSessionDownloadTask* task = [NSURLSession.sharedSession
          downloadTaskWithRequest:prepared
                completionHandler:^(NSURL* location, NSURLResponse* response, NSError* failure) {
                  bound->stop();
                  apple::runGuarded("download",
                                    [&] { done(resultOf(location, response, failure, limit, bound->exceeded())); });
                }];
      // Before the task runs: what ends it also ends this.
      bound->start(task, limit);
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
