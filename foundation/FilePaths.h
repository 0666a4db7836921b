#pragma once

#include <string>
#include <string_view>

namespace tks {

/// A path with one more component, with exactly one slash between the two. An empty folder stays out of it.
std::string joinedPath(std::string_view folder, std::string_view component);

/// The last component of a path, closing slashes left aside: "C.app" of "/a/b/C.app/".
std::string_view lastPathComponent(std::string_view path);

/// The folder that a path lies in, without a closing slash, closing slashes of the path left aside: "/a/b" of
/// "/a/b/C.app/". Empty for a single component.
std::string_view folderOf(std::string_view path);

/// A name without its extension: "C" of "C.app". A leading dot begins no extension.
std::string_view withoutExtension(std::string_view name);

}  // namespace tks
