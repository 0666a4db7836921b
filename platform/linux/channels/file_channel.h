#pragma once

#include <memory>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/channels.h"

namespace tks::gnulinux {

/// See platform::Channels::fileSource: a file that grows. Woken by inotify; where that is refused, by looking at the
/// file again and again.
std::unique_ptr<platform::ByteSource> fileSource(std::string_view path, TKSError* error);

/// See platform::Channels::fileSink.
std::shared_ptr<platform::ByteSink> fileSink(std::string_view path, TKSError* error);

}  // namespace tks::gnulinux
