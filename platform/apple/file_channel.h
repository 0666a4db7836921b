#pragma once

#include <memory>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/channels.h"

namespace tks::platform::apple {

// See platform::Channels.

std::unique_ptr<ByteSource> makeFileSource(std::string_view path, TKSError* error);
std::shared_ptr<ByteSink> makeFileSink(std::string_view path, TKSError* error);

}  // namespace tks::platform::apple
