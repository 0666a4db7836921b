#pragma once

// What of macOS's own Foundation the back end takes for granted, in terms of GNUstep's. Read before each of its
// sources.

#import <Foundation/Foundation.h>

#include <sys/xattr.h>

#include <clocale>
#include <string>

#include "tests/platform/gnustep/dispatch.h"

// Its own is an object, which does not go with what is no object here: queues and sources.
#undef nil
#define nil nullptr

// SIGPIPE is kept from the whole program instead; see adaptations.mm.
enum { F_SETNOSIGPIPE = -2 };

// Without automatic reference counting, which GCC's run-time does not have, there is nothing to bridge.
#define __bridge

using CFTypeRef = const void*;
using CFNumberRef = const void*;

inline int CFBooleanGetTypeID() { return 1; }
inline int CFGetTypeID(CFTypeRef object) {
  const auto* number = static_cast<const NSNumber*>(object);
  return number == [NSNumber numberWithBool:YES] || number == [NSNumber numberWithBool:NO];
}
inline bool CFNumberIsFloatType(CFNumberRef object) {
  const char type = [static_cast<const NSNumber*>(object) objCType][0];
  return type == 'd' || type == 'f';
}

inline locale_t plainLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}
#define LC_C_LOCALE plainLocale()

// Names of numbers and keys that GNUstep does not have.
#define NSDebugDescriptionErrorKey @"NSDebugDescription"
enum { NSPropertyListReadCorruptError = 3840, NSPropertyListWriteInvalidError = 3852 };

// Extended attributes of users begin so on Linux.
enum { XATTR_NOFOLLOW = 1 };
inline int removexattr(const char* path, const char* name, int) {
  return lremovexattr(path, ("user." + std::string(name)).c_str());
}

// What came later than GNUstep's NSFileManager; see adaptations.mm.
@interface NSFileManager (Later)
- (BOOL)setAttributes:(NSDictionary*)attributes ofItemAtPath:(NSString*)path error:(NSError**)error;
@end
