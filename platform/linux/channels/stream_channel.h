#pragma once

#include <memory>

#include <tksinterface/TKSError.h>

#include "platform/channels.h"

namespace tks::gnulinux {

/// The reading end of what a descriptor stands for: a pipe, a socket, a terminal, or anything else that can be read.
/// The descriptor itself stays the caller's and is not changed: not its flags either, which other processes may share.
/// Null, and `error`, when it is not open for reading. `name` is for errors.
std::unique_ptr<platform::ByteSource> streamSource(int descriptor, const char* name, TKSError* error);

/// The same for the writing end.
std::shared_ptr<platform::ByteSink> streamSink(int descriptor, const char* name, TKSError* error);

}  // namespace tks::gnulinux
