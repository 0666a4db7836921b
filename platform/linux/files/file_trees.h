#pragma once

#include <string>

#include <tksinterface/TKSError.h>

namespace tks::gnulinux {

/// Removes a file, a link or a folder with all it holds. Links are removed, never followed, also when somebody puts one
/// in place of a folder meanwhile. Stops at the first thing that cannot be removed. The root, the home, the places of
/// volumes and the folders above any of these are refused, here and below, before anything is done.
bool removeTree(const std::string& path, TKSError* error);

/// Removes a folder that has nothing in it.
bool removeEmptyFolder(const std::string& path, TKSError* error);

/// Copies a file, a link, a FIFO or a folder with all it holds: content, permissions, extended attributes, times of
/// change. The destination must not exist; on failure nothing of it is left.
bool copyTree(const std::string& from, const std::string& to, TKSError* error);

/// Renames; from one volume to another copies to a hidden name beside the destination, syncs, renames, and removes the
/// source at last. The destination must not exist. Until the rename nothing has changed.
bool moveTree(const std::string& from, const std::string& to, TKSError* error);

/// Lets two files or folders of one volume change places in one step; where the volume cannot do that, in three, undone
/// when one of them fails.
bool exchangeTrees(const std::string& first, const std::string& second, TKSError* error);

}  // namespace tks::gnulinux
