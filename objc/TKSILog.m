#import <TKSInterfaceKit/TKSILog.h>
#include <tksinterface/c/tksinterface.h>

#import "TKSTexts.h"

#include <Block.h>

// Memory is counted by hand: the sources are compiled for run times without automatic counting as well.

static TKSILog* sharedLog = nil;
static TKSLogBlock installedBlock = nil;

// The context is the block.
static void logLine(void* context, int32_t level, const char* line) {
  @autoreleasepool {
    NSString* message = [NSString stringWithUTF8String:line];
    if (message != nil) ((TKSLogBlock)context)(level, message);
  }
}

// Blocks are no objects everywhere: they get no messages.
static void releaseBlock(void* context) { Block_release(context); }

/// Texts as they are, other objects as "%@" shows them.
static NSString* textOf(id object) {
  return [object isKindOfClass:[NSString class]] ? object : [NSString stringWithFormat:@"%@", object];
}

@implementation TKSILog

// The class is initialised once, before its first use.
+ (void)initialize {
  if (self == [TKSILog class]) sharedLog = [[super allocWithZone:NULL] init];
}

+ (instancetype)allocWithZone:(NSZone*)zone {
  (void)zone;
  return [sharedLog retain];
}

+ (instancetype)sharedInstance {
  return sharedLog;
}

- (TKSLogBlock)logBlock {
  return installedBlock;
}

- (void)setLogBlock:(TKSLogBlock)block {
  @synchronized(self) {
    TKSLogBlock before = installedBlock;
    installedBlock = block == nil ? NULL : Block_copy(block);
    // The library has a count of its own, which it gives back when it lets go of the block.
    if (installedBlock == nil) {
      tks_set_log(NULL, NULL, NULL);
    } else {
      tks_set_log(logLine, Block_copy(installedBlock), releaseBlock);
    }
    if (before != nil) Block_release(before);
  }
}

+ (void)logWithLevel:(int)level format:(NSString*)format, ... {
  va_list arguments;
  va_start(arguments, format);
  NSString* line = [[NSString alloc] initWithFormat:format arguments:arguments];
  va_end(arguments);
  tks_log(level, TKSUTF8(line));
  [line release];
}

+ (NSString*)removeSensitiveInformation:(id)object {
  NSString* masked = TKSTaken(tks_mask(TKSUTF8(textOf(object))));
  return masked == nil ? @"" : masked;
}

+ (NSString*)addMask:(id)object {
  NSString* masked = TKSTaken(tks_add_mask(TKSUTF8(textOf(object))));
  return masked == nil ? @"" : masked;
}

@end
