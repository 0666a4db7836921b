#import <objc/runtime.h>

#include <cerrno>
#include <csignal>

// Where GNUstep does something in another way than macOS, and can be led to do the same.

namespace {

/// Puts a method of `from` in the place of one that `to` has; the old one stays callable under the new one's name.
void exchange(Class to, SEL old, SEL name) {
  method_exchangeImplementations(class_getInstanceMethod(to, old), class_getInstanceMethod(to, name));
}

/// Linux has no descriptor that raises no SIGPIPE.
[[maybe_unused]] const auto kBefore = std::signal(SIGPIPE, SIG_IGN);

}  // namespace

/// On macOS Foundation has its character sets in it. Here it opens a file for each of them when the first is asked for,
/// on whatever thread that is, under the lowest number that is free: a test that has closed a standard handle would see
/// it.
@interface NSString (OpenedBeforehand)
@end

@implementation NSString (OpenedBeforehand)

+ (void)load {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  [NSString availableStringEncodings];
  [pool release];
}

@end

/// On macOS a daemon keeps the preferences: what one process stores all others find from then on. Here they are files,
/// which are written and read when a program asks for it.
@interface NSUserDefaults (OneStore)
@end

@implementation NSUserDefaults (OneStore)

+ (void)load {
  exchange(self, @selector(setObject:forKey:), @selector(tks_setObject:forKey:));
  exchange(self, @selector(removeObjectForKey:), @selector(tks_removeObjectForKey:));
  exchange(self, @selector(dictionaryRepresentation), @selector(tks_dictionaryRepresentation));
}

- (void)tks_setObject:(id)object forKey:(NSString*)key {
  [self tks_setObject:object forKey:key];
  [self synchronize];
}

- (void)tks_removeObjectForKey:(NSString*)key {
  [self tks_removeObjectForKey:key];
  [self synchronize];
}

- (NSDictionary*)tks_dictionaryRepresentation {
  [self synchronize];
  return [self tks_dictionaryRepresentation];
}

@end

/// The user's locale is the preference AppleLocale there, and another one here.
@interface NSLocale (ChosenOne)
@end

@implementation NSLocale (ChosenOne)

+ (void)load {
  exchange(object_getClass(self), @selector(currentLocale), @selector(tks_currentLocale));
}

+ (id)tks_currentLocale {
  NSString* chosen = [NSUserDefaults.standardUserDefaults stringForKey:@"AppleLocale"];
  if (chosen == nil) return [self tks_currentLocale];
  return [[[NSLocale alloc] initWithLocaleIdentifier:chosen] autorelease];
}

@end

@implementation NSFileManager (Later)

- (BOOL)setAttributes:(NSDictionary*)attributes ofItemAtPath:(NSString*)path error:(NSError**)error {
  errno = 0;
  if ([self changeFileAttributes:attributes atPath:path]) return YES;
  if (error != nullptr) *error = [NSError errorWithDomain:NSPOSIXErrorDomain code:errno userInfo:nil];
  return NO;
}

@end
