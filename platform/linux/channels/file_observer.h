#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/channels/own_descriptor.h"
#include "platform/linux/loop/event_loop.h"

namespace tks::gnulinux {

/// Tells on the main thread that a file may have changed. What changed, the caller has to find out. Sleeps while
/// nothing happens, with inotify on the file and on the folder that it stands in; where that is refused, it tells so a
/// few dozen times a second instead.
class FileObserver {
 public:
  enum class Change {
    /// Its content, perhaps.
    content,
    /// Its name, its place, perhaps its content as well.
    place,
  };
  /// May destroy the observer.
  using Changed = std::function<void(Change change)>;

  FileObserver(const std::string& path, Changed changed);
  ~FileObserver();
  FileObserver(const FileObserver&) = delete;
  FileObserver& operator=(const FileObserver&) = delete;

  /// The file did change: while it is polled, it is looked at more often for a while.
  void expectMore();

 private:
  bool observe();
  void begin();
  void onEvents();
  void onLoss();
  void pollAfter(std::chrono::milliseconds delay);

  const std::shared_ptr<const Changed> changed_;
  const std::string path_;
  std::string name_;
  OwnDescriptor inotify_;
  std::unique_ptr<EventLoop::Watch> watch_;
  int fileWatch_ = -1;
  std::chrono::milliseconds delay_;
  int polls_ = 0;
  std::unique_ptr<platform::MainLoop::Timer> timer_;
};

}  // namespace tks::gnulinux
