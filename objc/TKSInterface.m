#import <TKSInterfaceKit/TKSInterface.h>
#include <tksinterface/c/tksinterface.h>

#import "TKSTexts.h"

#include <Block.h>

// Memory is counted by hand: the sources are compiled for run times without automatic counting as well.

NSString* const TKSErrorReasonKey = @"TKSErrorReason";

static TKSInterface* sharedInterface = nil;

/// The blocks of one call: what the library holds as its context.
@interface TKSCallBlocks : NSObject {
 @public
  TKSFinishBlock finish;
  TKSErrorBlock error;
}
@end

@implementation TKSCallBlocks

- (instancetype)initWithFinish:(TKSFinishBlock)finishBlock error:(TKSErrorBlock)errorBlock {
  self = [super init];
  if (self != nil) {
    // Blocks are no objects everywhere: they get no messages.
    if (finishBlock != nil) finish = Block_copy(finishBlock);
    if (errorBlock != nil) error = Block_copy(errorBlock);
  }
  return self;
}

- (void)dealloc {
  if (finish != nil) Block_release(finish);
  if (error != nil) Block_release(error);
  [super dealloc];
}

@end

static NSString* textOrEmpty(const char* text) {
  NSString* made = text == NULL ? nil : [NSString stringWithUTF8String:text];
  return made == nil ? @"" : made;
}

static NSError* errorFrom(const tks_error* error) {
  NSMutableDictionary* information = [NSMutableDictionary dictionary];
  [information setObject:textOrEmpty(error->text) forKey:NSLocalizedDescriptionKey];
  [information setObject:textOrEmpty(error->reason_name) forKey:TKSErrorReasonKey];
  NSString* suggestion = textOrEmpty(error->suggestion);
  if ([suggestion length] > 0) [information setObject:suggestion forKey:NSLocalizedRecoverySuggestionErrorKey];
  return [NSError errorWithDomain:textOrEmpty(error->domain) code:(NSInteger)error->code userInfo:information];
}

static void onFinish(void* context) {
  @autoreleasepool {
    TKSCallBlocks* blocks = context;
    if (blocks->finish != nil) blocks->finish();
  }
}

static void onError(void* context, const tks_error* error) {
  @autoreleasepool {
    TKSCallBlocks* blocks = context;
    blocks->error(errorFrom(error));
  }
}

/// The context is where the caller wants the error.
static void onOptionsError(void* context, const tks_error* error) {
  NSError** wanted = context;
  if (wanted != NULL) *wanted = errorFrom(error);
}

static void onPid(void* context, int32_t pid) {
  @autoreleasepool {
    ((TKSPidBlock)context)(pid);
  }
}

static void releaseObject(void* context) { [(id)context release]; }

static void releaseBlock(void* context) { Block_release(context); }

typedef void (*TKSLaunchFunction)(const char* parameters, tks_finish_fn finished, tks_error_fn failed, void* context,
                                  tks_release_fn release);

/// A dictionary as JSON; nothing stays nothing, and what JSON cannot hold becomes what the library refuses.
static NSString* jsonText(NSDictionary* dictionary) {
  if (dictionary == nil) return nil;
  NSData* data = nil;
  if ([NSJSONSerialization isValidJSONObject:dictionary]) {
    data = [NSJSONSerialization dataWithJSONObject:dictionary options:0 error:NULL];
  }
  NSString* text = data == nil ? nil : [[NSString alloc] initWithData:data encoding:NSUTF8StringEncoding];
  return text == nil ? @"[]" : [text autorelease];
}

static void launch(TKSLaunchFunction function, NSDictionary* param, TKSFinishBlock finish, TKSErrorBlock error) {
  @autoreleasepool {
    TKSCallBlocks* blocks = [[TKSCallBlocks alloc] initWithFinish:finish error:error];
    function(TKSUTF8(jsonText(param)), onFinish, error == nil ? NULL : onError, blocks, releaseObject);
  }
}

@implementation TKSInterface

+ (void)initialize {
  if (self == [TKSInterface class]) sharedInterface = [[super allocWithZone:NULL] init];
}

// The library has one launcher: there is one facade.
+ (instancetype)allocWithZone:(NSZone*)zone {
  (void)zone;
  return [sharedInterface retain];
}

+ (instancetype)sharedInstance {
  return sharedInterface;
}

+ (BOOL)setOptions:(NSDictionary*)options error:(NSError**)error {
  return tks_set_options(TKSUTF8(jsonText(options)), onOptionsError, error) ? YES : NO;
}

- (void)setLogBlock:(TKSLogBlock)block {
  [[TKSILog sharedInstance] setLogBlock:block];
}

- (void)setBackupTKSAppPath:(NSString*)path {
  tks_set_backup_launcher(TKSUTF8(path));
}

- (void)setBackupTKSZipPath:(NSString*)path TKSVersion:(NSString*)version {
  tks_set_backup_archive(TKSUTF8(path), TKSUTF8(version));
}

- (void)launchedTKSPidBlock:(TKSPidBlock)block {
  if (block == nil) {
    tks_set_pid_callback(NULL, NULL, NULL);
  } else {
    tks_set_pid_callback(onPid, Block_copy(block), releaseBlock);
  }
}

- (NSString*)TKSAppPath {
  return TKSTaken(tks_launcher());
}

- (void)setTKSAppPath:(NSString*)path {
  tks_set_launcher(TKSUTF8(path));
}

- (BOOL)isTKSAppSuspending {
  return tks_status() == TKS_STATUS_CONNECTED;
}

- (BOOL)isTKSAppProcessing {
  return tks_status() == TKS_STATUS_LAUNCHING;
}

- (int)connectedTKSAppPid {
  return tks_connected_pid();
}

- (void)start:(TKSFinishBlock)finishBlock errorBlock:(TKSErrorBlock)errorBlock {
  TKSCallBlocks* blocks = [[TKSCallBlocks alloc] initWithFinish:finishBlock error:errorBlock];
  tks_start(onFinish, errorBlock == nil ? NULL : onError, blocks, releaseObject);
}

- (void)stop:(TKSFinishBlock)finishBlock errorBlock:(TKSErrorBlock)errorBlock {
  TKSCallBlocks* blocks = [[TKSCallBlocks alloc] initWithFinish:finishBlock error:errorBlock];
  tks_stop(onFinish, errorBlock == nil ? NULL : onError, blocks, releaseObject);
}

- (void)launchMeetingWithParam:(NSDictionary*)param
                   finishBlock:(TKSFinishBlock)finishBlock
                    errorBlock:(TKSErrorBlock)errorBlock {
  launch(tks_launch, param, finishBlock, errorBlock);
}

- (void)internalLaunchMeetingWithParam:(NSDictionary*)param
                           finishBlock:(TKSFinishBlock)finishBlock
                            errorBlock:(TKSErrorBlock)errorBlock {
  launch(tks_launch_directly, param, finishBlock, errorBlock);
}

- (void)relaunchTKSWhenUpdateDone:(NSDictionary*)param
                launchFinishBlock:(TKSFinishBlock)launchFinishBlock
                 launchErrorBlock:(TKSErrorBlock)launchErrorBlock {
  launch(tks_launch_after_update, param, launchFinishBlock, launchErrorBlock);
}

- (NSDictionary*)getRecordedSites {
  NSString* text = TKSTaken(tks_recorded_sites());
  NSData* data = [text dataUsingEncoding:NSUTF8StringEncoding];
  if (data == nil) return nil;
  id sites = [NSJSONSerialization JSONObjectWithData:data options:0 error:NULL];
  return [sites isKindOfClass:[NSDictionary class]] ? sites : nil;
}

- (void)cleanupConnectStatus4FileIPC {
  tks_clean_up_file_channel();
}

@end
