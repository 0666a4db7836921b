#pragma once

#include <string>
#include <string_view>

namespace tks {

/// A path without closing slashes, which would make the system follow a link at its end; "/" stays.
std::string withoutClosingSlashes(std::string_view path);

/// A path with one more component, with exactly one slash between the two. An empty folder stays out of it.
std::string joinedPath(std::string_view folder, std::string_view component);

/// The last component of a path, closing slashes left aside: "C.app" of "/a/b/C.app/".
std::string_view lastPathComponent(std::string_view path);

/// The folder that a path lies in, without closing slashes, closing slashes of the path left aside: "/a/b" of
/// "/a/b//C.app/". "." for a single component, which lies in the working folder; empty for an empty path.
std::string_view folderOf(std::string_view path);

/// What of a path stands before its last component, as it stands: "/a/b//" of "/a/b//C.app/". Empty for a single
/// component.
std::string_view folderPart(std::string_view path);

/// Whether a path can name a file: neither empty nor with a NUL byte, which the system would take for its end.
bool isPath(std::string_view path);

/// A path as an argument that no tool takes for an option: "./-a" for "-a".
std::string pathArgument(std::string_view path);

/// A name without its extension: "C" of "C.app". A leading dot begins no extension.
std::string_view withoutExtension(std::string_view name);

}  // namespace tks
