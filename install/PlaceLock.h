#pragma once

#include <memory>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "install/Patience.h"
#include "platform/files.h"

namespace tks::install {

/// Keeps other installations from a bundle's place while one replaces it, or while it is checked, started or looked at
/// and removed when it is broken: otherwise the bundle could change between the check and the start. It is the folder
/// that is locked, so hosts with temporary folders of their own keep to it as well. Null when the path names no bundle
/// ("/", ".", "..") or there is no folder, or, with the reason (`busy` while another process has it), when it is not to
/// be had within `patience`. Any thread.
std::unique_ptr<platform::FileLock> lockPlace(std::string_view bundlePath, Patience& patience, TKSError* error);

/// Whether a path names a bundle whose folder is one, and may be entered.
bool isUsablePlace(std::string_view bundlePath);

}  // namespace tks::install
