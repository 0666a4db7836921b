#pragma once

#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::ctl {

/// A folder below the temporary one that this user alone can enter, and that is gone with this object.
class Scratch {
 public:
  /// Without a folder, and with `error`, when none can be made.
  explicit Scratch(TKSError* error);
  ~Scratch() { remove(); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  /// Empty when there is none.
  const std::string& path() const { return path_; }
  /// Path of something in it.
  std::string place(std::string_view name) const;
  void remove();

 private:
  std::string path_;
};

}  // namespace tks::ctl
