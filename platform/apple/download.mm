#import <Foundation/Foundation.h>

#include <utility>

#include "platform/apple/conversions.h"
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

DownloadResult resultOf(NSURL* location, NSURLResponse* response, NSError* failure, std::size_t limit) {
  DownloadResult result;
  if ([response isKindOfClass:NSHTTPURLResponse.class]) {
    result.statusCode = static_cast<int>(static_cast<NSHTTPURLResponse*>(response).statusCode);
  }
  NSNumber* size = nil;
  [location getResourceValue:&size forKey:NSURLFileSizeKey error:nil];
  if (location != nil && size.unsignedLongLongValue > limit) {
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
          done(refused);
        });
        return;
      }
      NSURLRequest* prepared = [NSURLRequest requestWithURL:url
                                                cachePolicy:NSURLRequestReloadIgnoringLocalCacheData
                                            timeoutInterval:std::chrono::duration<double>(request.idleTimeout).count()];
      const std::size_t limit = request.limit;
      NSURLSessionDownloadTask* task = [NSURLSession.sharedSession
          downloadTaskWithRequest:prepared
                completionHandler:^(NSURL* location, NSURLResponse* response, NSError* failure) {
                  done(resultOf(location, response, failure, limit));
                }];
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
