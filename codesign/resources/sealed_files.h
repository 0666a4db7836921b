#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "codesign/container/hash_type.h"
#include "codesign/container/hashing_threads.h"
#include "codesign/resources/code_resources.h"
#include "platform/posix/file_descriptor.h"

namespace tks::codesign {

/// Compares the files of one bundle with its seal: they are hashed on several threads, on each of them several files
/// side by side. Made, used and destroyed by one thread.
class SealedFiles {
 public:
  /// Told of a file that is not as it is sealed, by its path, on any of the threads.
  using Note = std::function<void(bool isMissing, std::string_view path)>;

  /// `root` is the open folder below which the paths of the seal lie. It is opened before the first file is added.
  SealedFiles(const CodeResources& seal, const std::vector<HashType>& types, const posix::FileDescriptor& root,
              Note note);

  /// Has the file that a seal of the kind `file` names compared.
  void add(std::uint32_t number) { threads_.add(number); }
  /// Waits until all have been. Fails when one of them cannot be read; of several it is the one added first.
  void finish() { threads_.finish(); }

 private:
  class Round;
  class OpenFile;

  const CodeResources& seal_;
  const std::vector<HashType> types_;
  const posix::FileDescriptor& root_;
  const Note note_;
  HashingThreads threads_;  ///< last, as its threads use the rest
};

}  // namespace tks::codesign
