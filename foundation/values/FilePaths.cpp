#include "foundation/values/FilePaths.h"

namespace tks {
namespace {

std::string_view cut(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

}  // namespace

std::string withoutClosingSlashes(std::string_view path) { return std::string(cut(path)); }

std::string joinedPath(std::string_view folder, std::string_view component) {
  std::string path(cut(folder));
  if (!path.empty() && !path.ends_with('/')) path += '/';
  path += component;
  return path;
}

std::string_view lastPathComponent(std::string_view path) {
  path = cut(path);
  return path.size() > 1 ? path.substr(folderPart(path).size()) : path;
}

std::string_view folderOf(std::string_view path) {
  path = cut(path);
  const std::string_view folder = folderPart(path);
  if (folder.empty()) return path.empty() ? path : std::string_view(".");
  return cut(folder);
}

std::string_view folderPart(std::string_view path) {
  path = cut(path);
  return path.substr(0, path.rfind('/') + 1);
}

bool isPath(std::string_view path) { return !path.empty() && path.find('\0') == std::string_view::npos; }

std::string pathArgument(std::string_view path) { return std::string(path.starts_with('-') ? "./" : "").append(path); }

std::string_view withoutExtension(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

}  // namespace tks
