// What the kit adds to the C interface: texts, errors and blocks on their way. Prints each failure; the number of them
// is the exit code. The meetings are launched by examples/objc/host.m.

#include <Block.h>
#import <TKSInterfaceKit/TKSInterfaceKit.h>
#include <stdio.h>

static int failures = 0;

#define CHECK(holds)                                      \
  do {                                                    \
    if (!(holds)) {                                       \
      fprintf(stderr, "line %d: %s\n", __LINE__, #holds); \
      ++failures;                                         \
    }                                                     \
  } while (0)

/// How many hold a block that was copied: the low bits of the flags after its class.
static int holders(id block) {
#ifdef __APPLE__
  return (((int*)block)[2] & 0xfffe) / 2;
#else
  return ((int*)block)[2] & 0xffff;
#endif
}

static void checkConstants(void) {
  CHECK([tks_param_key_meetingkey isEqualToString:@"meetingkey"]);
  CHECK([TKSAppName isEqualToString:@"Tarvo Kovra Start.app"]);
  CHECK([kTarvoCertificate hasPrefix:@"Developer ID Application: Tarvo ("]);
  CHECK([tksinterfaceVersionString hasSuffix:@"PROJECT:TKSInterface-1\n"]);
  CHECK(TKSMinSupportedMainVersion == 4);
  CHECK(tks_max_msg_size == 10485760);
}

static void checkSingletons(void) {
  CHECK([TKSInterface sharedInstance] != nil);
  TKSInterface* another = [[TKSInterface alloc] init];
  CHECK(another == [TKSInterface sharedInstance]);
  [another release];
  CHECK([[[TKSILog alloc] init] autorelease] == [TKSILog sharedInstance]);
}

static void checkLog(void) {
  __block int lines = 0;
  __block int lastLevel = 0;
  TKSLogBlock block = Block_copy(^(int level, NSString* message) {
    if ([message isEqualToString:@"7 of 100%, Grüße"]) ++lines;
    lastLevel = level;
  });
  [[TKSInterface sharedInstance] setLogBlock:block];
  CHECK([[TKSILog sharedInstance] logBlock] == block);
  [TKSILog logWithLevel:4 format:@"%d of 100%%, %@", 7, @"Grüße"];
  CHECK(lines == 1 && lastLevel == 4);
  CHECK(holders(block) > 1);
  [[TKSILog sharedInstance] setLogBlock:nil];
  [TKSILog logWithLevel:4 format:@"7 of 100%%, Grüße"];
  CHECK(lines == 1);
  CHECK(holders(block) == 1);
  Block_release(block);
}

static void checkMasking(void) {
  CHECK([[TKSILog addMask:@"secret"] isEqualToString:@"sec***"]);
  CHECK([[TKSILog addMask:[NSNumber numberWithInt:123456]] isEqualToString:@"123***"]);
  CHECK([[TKSILog removeSensitiveInformation:@"/Users/jane.doe/x"] rangeOfString:@"jane.doe"].location == NSNotFound);
  CHECK([[TKSILog removeSensitiveInformation:nil] isEqualToString:@"(null)"]);
}

/// What setting these options fails with; nothing when they are accepted.
static NSError* refusalOf(NSDictionary* options) {
  NSError* error = nil;
  const BOOL set = [TKSInterface setOptions:options error:&error];
  CHECK(set == (error == nil));
  CHECK([TKSInterface setOptions:options error:NULL] == set);
  return error;
}

/// Before the first launch: later ones are refused.
static void checkOptions(void) {
  CHECK(refusalOf(nil) == nil);
  NSNumber* yes = [NSNumber numberWithBool:YES];
  NSDictionary* several = @{@"helloLimit" : @30000, @"httpsOnly" : yes, @"launcherEnvironment" : @[ @"HOME", @"PATH" ]};
  CHECK(refusalOf(several) == nil);
  CHECK([[refusalOf(@{@"httpsOnly" : @1}) localizedDescription] hasPrefix:@"Option of another kind: httpsOnly"]);
  NSError* unknown = refusalOf(@{@"helloLimits" : @30000});
  CHECK([[unknown localizedDescription] isEqualToString:@"Unknown option: helloLimits"]);
  CHECK([[[unknown userInfo] objectForKey:TKSErrorReasonKey] isEqualToString:@"invalidArgument"]);
  CHECK([[refusalOf(@{@"helloLimit" : @"soon"}) localizedDescription] hasPrefix:@"Option of another kind: helloLimit"]);
  CHECK([[refusalOf(@{@"helloLimit" : @-1}) localizedDescription] isEqualToString:@"Option out of its range: helloLimit"]);
  CHECK(refusalOf(@{@"helloLimit" : [[[NSObject alloc] init] autorelease]}) != nil);
  CHECK(refusalOf(@{}) == nil);
}

/// What a launch with these parameters and without a launcher fails with.
static NSError* failureOf(NSDictionary* parameters) {
  __block NSError* told = nil;
  __block int calls = 0;
  TKSFinishBlock finish = Block_copy(^{
    ++calls;
  });
  TKSErrorBlock fail = Block_copy(^(NSError* error) {
    told = [error retain];
    ++calls;
    [TKSMainLoop stop];
  });
  [[TKSInterface sharedInstance] launchMeetingWithParam:parameters finishBlock:finish errorBlock:fail];
  [TKSMainLoop run];
  CHECK(calls == 1);
  CHECK(holders(finish) == 1 && holders(fail) == 1);
  Block_release(finish);
  Block_release(fail);
  return [told autorelease];
}

static void checkErrors(void) {
  [TKSInterface sharedInstance].TKSAppPath = @"/nowhere/Tarvo Kovra Start.app";
  CHECK([[TKSInterface sharedInstance].TKSAppPath isEqualToString:@"/nowhere/Tarvo Kovra Start.app"]);
  NSError* missing = failureOf(@{@"meetingkey" : @"1"});
  CHECK([[missing domain] isEqualToString:@"TKSIDefaultDomain"] && [missing code] == 0);
  CHECK([[[missing userInfo] objectForKey:TKSErrorReasonKey] isEqualToString:@"notInstalled"]);
  CHECK([[missing localizedDescription] rangeOfString:@"Component binary file not exists: "].location != NSNotFound);
  CHECK([[missing localizedRecoverySuggestion] length] > 0);
  NSError* noJson = failureOf(@{@"meetingkey" : [[[NSObject alloc] init] autorelease]});
  // GNUstep writes something for every object, which the library then cannot read.
  NSString* reason = [[noJson userInfo] objectForKey:TKSErrorReasonKey];
  CHECK([reason isEqualToString:@"invalidArgument"] || [reason isEqualToString:@"badMessage"]);
}

/// Each that is on has its line when the library begins, and from then on none can be set.
static void checkOptionsAreUsed(void) {
  CHECK(refusalOf(@{@"silenceNotice" : @5000}) == nil);
  __block int lines = 0;
  [[TKSInterface sharedInstance] setLogBlock:^(int level, NSString* message) {
    if (level == 2 && [message rangeOfString:@"silenceNotice"].location != NSNotFound) ++lines;
  }];
  checkErrors();
  CHECK(lines == 1);
  [[TKSInterface sharedInstance] setLogBlock:nil];
  CHECK([[refusalOf(@{}) localizedDescription] hasPrefix:@"Options can be set only before the first start"]);
}

static void checkStatus(void) {
  TKSInterface* tks = [TKSInterface sharedInstance];
  CHECK(![tks isTKSAppSuspending] && ![tks isTKSAppProcessing] && [tks connectedTKSAppPid] == 0);
  __block BOOL stopped = NO;
  [tks
            stop:^{
              stopped = YES;
            }
      errorBlock:nil];
  CHECK(stopped);
  [tks setBackupTKSAppPath:nil];
  [tks setBackupTKSZipPath:nil TKSVersion:nil];
  [tks launchedTKSPidBlock:nil];
  [tks cleanupConnectStatus4FileIPC];
}

int main(void) {
  @autoreleasepool {
    checkConstants();
    checkSingletons();
    checkLog();
    checkMasking();
    checkOptions();
    checkOptionsAreUsed();
    checkStatus();
  }
  return failures;
}
