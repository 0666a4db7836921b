#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace tks::ctl {

/// Writes an archive that depends on nothing but what is put into it, in the order in which it is put: no time of a
/// file, no user, no place. Everything here throws std::runtime_error, in words for people, when it cannot be done. One
/// thread.
class ArchiveWriter {
 public:
  enum class Format { zip, tar };

  /// Writes to a file that is open for writing and empty, and stays the caller's.
  ArchiveWriter(int descriptor, Format format);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  void addFolder(const std::string& name);
  /// A file as it is at `path` now. False when `isStopped` says so before its end: the archive is of no use then.
  bool addFile(const std::string& name, bool isExecutable, const std::string& path,
               const std::function<bool()>& isStopped = {});
  void addContent(const std::string& name, std::span<const std::uint8_t> content);
  void addLink(const std::string& name, const std::string& target);
  /// Writes the end. Nothing may be added after it.
  void finish();

 private:
  struct Content;
  std::unique_ptr<Content> content_;
};

}  // namespace tks::ctl
