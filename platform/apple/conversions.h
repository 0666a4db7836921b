#pragma once

#import <Foundation/Foundation.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::platform::apple {

/// UTF-8 to a string object; bytes that are not UTF-8 give nil.
NSString* toString(std::string_view text);
/// A string object as UTF-8; nil gives the empty text. Lone surrogates become replacement characters.
std::string fromString(NSString* text);
/// The same with a replacement character for each byte that begins no character; never nil.
NSString* toRepairedString(std::string_view text);
/// A path as the file system's own representation: unlike `toString` never nil.
NSString* toPath(std::string_view path);
NSURL* toFileURL(std::string_view path);
/// Arguments for a program; nil, and errno, when one is no UTF-8 or holds a NUL byte, so that it would arrive as
/// another.
NSArray<NSString*>* toArguments(std::span<const std::string> arguments);
NSData* toData(std::span<const std::uint8_t> bytes);
TKSData fromData(NSData* data);

/// A property-list or JSON object as a value, without recursion; nil gives nothing. Objects of other classes give their
/// description as text.
TKSValue fromObject(id object);
/// A value as a property-list or JSON object, without recursion; nothing gives nil, null gives NSNull. What has no
/// object inside of a container, nothing and text that is not UTF-8, is NSNull there.
id toObject(const TKSValue& value);
/// Whether a value is deeper or larger than the system's writers, which go down by recursion, may be given.
bool isBeyondBounds(const TKSValue& value);
TKSDictionary fromDictionary(NSDictionary* dictionary);

/// The system's error in our form; nil gives an error that names the step alone.
TKSError fromError(NSError* error, std::string_view step);
/// The same for a step on a path, in the words that system calls have for it: by the system's number where the error
/// has one beneath.
TKSError fromError(NSError* error, std::string_view step, std::string_view path);
/// The error of content that is not in its format, or has no place in it: the system's number for that, and the words
/// that the other back ends have for the step.
TKSError formatError(std::int64_t code, std::string_view step, std::string_view reason);
/// What the system says was wrong, in its words for developers, which no language of the user changes; nil gives
/// `otherwise`.
std::string reasonOf(NSError* error, std::string_view otherwise);
/// Writes an error through an out-parameter that may be null.
void store(TKSError* slot, NSError* error, std::string_view step);

}  // namespace tks::platform::apple
