#pragma once

#include <memory>

#include "platform/channels.h"
#include "platform/posix/file_descriptor.h"

namespace tks::platform::apple {

/// The reading end of standard input, on a descriptor of its own.
std::unique_ptr<ByteSource> makePipeSource(posix::FileDescriptor descriptor);
/// The writing end of standard output, on a descriptor of its own.
std::shared_ptr<ByteSink> makePipeSink(posix::FileDescriptor descriptor);

}  // namespace tks::platform::apple
