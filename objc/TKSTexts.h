#pragma once

#import <Foundation/Foundation.h>

/// A text of the library as an object; the library's memory is given back. Nothing for a null pointer.
NSString* TKSTaken(char* text);

/// A text for the library, as long as the object lives; a null pointer for nothing.
const char* TKSUTF8(NSString* text);
