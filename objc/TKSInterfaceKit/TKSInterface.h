#pragma once

#import <Foundation/Foundation.h>
#import <TKSInterfaceKit/TKSILog.h>

NS_ASSUME_NONNULL_BEGIN

/// Something has been done.
typedef void (^TKSFinishBlock)(void);
/// Something has failed. Beside domain, code and description the error's userInfo has the suggestion for recovery and,
/// under TKSErrorReasonKey, the stable name of a reason.
typedef void (^TKSErrorBlock)(NSError* error);
/// A launcher was started.
typedef void (^TKSPidBlock)(int pid);

/// In an error's userInfo: the kind of failure as a stable name, for example "notTrusted" (docs/errors.md).
extern NSString* const TKSErrorReasonKey;

/// The one class that a host talks to: starts the launcher, asks it to launch meetings, stops it.
///
/// Operations may be called on any thread; elsewhere than on the main thread they are done there, later. Blocks are
/// called on the main thread: one of the two of a call, once.
@interface TKSInterface : NSObject

/// The process-wide instance; `init` returns it as well.
+ (instancetype)sharedInstance NS_SWIFT_NAME(shared());

/// Sets the options of this process, by their names (docs/security.md), in place of all that were set before: numbers
/// for times and sizes, booleans, texts, arrays of texts; nothing and @{} set none. NO, with `error`, for an unknown
/// name, a value of another kind or out of its range, and after the first start, launch, installation or list of
/// updates. Nothing has changed then. Any thread.
+ (BOOL)setOptions:(nullable NSDictionary<NSString*, id>*)options error:(NSError**)error;

/// Installs the log block (see TKSILog).
- (void)setLogBlock:(nullable TKSLogBlock)block;
/// Stored only.
- (void)setBackupTKSAppPath:(nullable NSString*)path;
/// The backup archive and the version of the launcher in it, for refreshing the installed launcher at the next start.
- (void)setBackupTKSZipPath:(nullable NSString*)path TKSVersion:(nullable NSString*)version;
/// Called with the process identifier of each launcher that is started.
- (void)launchedTKSPidBlock:(nullable TKSPidBlock)block;

/// Path of the launcher bundle. To be read on the main thread. Setting it to nothing leaves the executable as it was.
@property(nonatomic, copy, nullable) NSString* TKSAppPath;

/// The launcher is connected and waits. Any thread.
- (BOOL)isTKSAppSuspending;
/// The launcher works on a launch request. Any thread.
- (BOOL)isTKSAppProcessing;
/// Process identifier of the connected launcher; 0 when none. Any thread.
- (int)connectedTKSAppPid;

/// Starts and greets the launcher, or tests an existing connection.
- (void)start:(nullable TKSFinishBlock)finishBlock
    errorBlock:(nullable TKSErrorBlock)errorBlock NS_SWIFT_NAME(start(finish:error:));
/// Disconnects from the launcher. A running launch is given up; its blocks get an error first.
- (void)stop:(nullable TKSFinishBlock)finishBlock
    errorBlock:(nullable TKSErrorBlock)errorBlock NS_SWIFT_NAME(stop(finish:error:));

/// Launches a meeting, starting the launcher first if need be. `param` is the dictionary of launch parameters
/// (TKSConstants.h), of what JSON can hold.
- (void)launchMeetingWithParam:(nullable NSDictionary<NSString*, id>*)param
                   finishBlock:(nullable TKSFinishBlock)finishBlock
                    errorBlock:(nullable TKSErrorBlock)errorBlock NS_SWIFT_NAME(launchMeeting(withParam:finish:error:));
/// The same without looking at the status first.
- (void)internalLaunchMeetingWithParam:(nullable NSDictionary<NSString*, id>*)param
                           finishBlock:(nullable TKSFinishBlock)finishBlock
                            errorBlock:(nullable TKSErrorBlock)errorBlock
    NS_SWIFT_NAME(internalLaunchMeeting(withParam:finish:error:));
/// Waits, off the main thread, until the old launcher has quit (about 5 s), then launches again.
- (void)relaunchTKSWhenUpdateDone:(nullable NSDictionary<NSString*, id>*)param
                launchFinishBlock:(nullable TKSFinishBlock)launchFinishBlock
                 launchErrorBlock:(nullable TKSErrorBlock)launchErrorBlock
    NS_SWIFT_NAME(relaunchWhenUpdateDone(withParam:finish:error:));

/// Site domain to time of the last launch; nothing when none is recorded. Main thread.
- (nullable NSDictionary<NSString*, NSNumber*>*)getRecordedSites NS_SWIFT_NAME(recordedSites());

/// Ends a conversation over files at once, for the release host that uses files.
- (void)cleanupConnectStatus4FileIPC;

@end

NS_ASSUME_NONNULL_END
