#pragma once

#import <Foundation/Foundation.h>
#import <TKSInterfaceKit/TKSSymbols.h>

NS_ASSUME_NONNULL_BEGIN

/// The host's log block: a level (1 trace, 2 information, 4 warning, 8 error) and a complete line. Called on whichever
/// thread logs, also on several at once.
typedef void (^TKSLogBlock)(int level, NSString* message);

/// Where every component of the library reports to. Any thread.
@interface TKSILog : NSObject

/// The process-wide instance; `init` returns it as well.
+ (instancetype)sharedInstance NS_SWIFT_NAME(shared());

/// The installed block; without one all lines are dropped.
@property(nonatomic, copy, nullable) TKSLogBlock logBlock;

/// Formats a line and hands it to the block. Nothing is masked in it.
+ (void)logWithLevel:(int)level format:(NSString*)format, ... NS_FORMAT_FUNCTION(2, 3);

/// The text, or the description of another object, with personal data masked.
+ (NSString*)removeSensitiveInformation:(nullable id)object;
/// The text, or the description of another object, masked but for its first three bytes.
+ (NSString*)addMask:(nullable id)object;

@end

NS_ASSUME_NONNULL_END
