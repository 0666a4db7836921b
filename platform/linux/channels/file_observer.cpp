#include "platform/linux/channels/file_observer.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include "foundation/values/FilePaths.h"
#include "platform/linux/loop/system_calls.h"
#include "platform/posix/standard_handles.h"

namespace tks::gnulinux {
namespace {

using std::chrono::milliseconds;

/// A deleted file that is still open shows as a change of its attributes: one name less.
constexpr std::uint32_t kFileEvents = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;
constexpr std::uint32_t kFolderEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR;

constexpr milliseconds kShortestPause(1);
/// A message must not wait for 20 ms, and a look takes a few microseconds.
constexpr milliseconds kLongestPause(15);
/// The place of the file is looked at less often than its size.
constexpr int kPollsPerLookAtPlace = 16;

struct Place {
  std::string folder;
  std::string name;
};

Place placeOf(const std::string& path) { return {std::string(folderOf(path)), std::string(lastPathComponent(path))}; }

}  // namespace

FileObserver::FileObserver(const std::string& path, Changed changed)
    : changed_(std::make_shared<const Changed>(std::move(changed))), path_(path), delay_(kShortestPause) {
  begin();
}

void FileObserver::begin() {
  if (observe()) return;
  watch_.reset();
  inotify_ = OwnDescriptor();
  pollAfter(delay_);
}

FileObserver::~FileObserver() = default;

void FileObserver::expectMore() {
  if (inotify_) return;
  delay_ = kShortestPause;
  pollAfter(delay_);
}

bool FileObserver::observe() {
  Place place = placeOf(path_);
  name_ = std::move(place.name);
  posix::FileDescriptor inotify(systemCalls().inotifyInit(IN_CLOEXEC | IN_NONBLOCK));
  if (!posix::raiseAboveStandard(inotify)) return false;
  inotify_ = OwnDescriptor(std::move(inotify));
  fileWatch_ = ::inotify_add_watch(inotify_.get(), path_.c_str(), kFileEvents);
  if (fileWatch_ < 0 || ::inotify_add_watch(inotify_.get(), place.folder.c_str(), kFolderEvents) < 0) return false;
  watch_ = EventLoop::main().watch(inotify_.get(), EPOLLIN, [this](std::uint32_t events) {
    if (events == EventLoop::kLost) return onLoss();
    onEvents();
  });
  return watch_ != nullptr;
}

/// The descriptor may be gone, and so may be that of the file, which its owner finds out.
void FileObserver::onLoss() {
  const auto changed = changed_;
  begin();
  (*changed)(Change::place);
}

void FileObserver::onEvents() {
  alignas(inotify_event) std::array<char, 4096> buffer;
  const auto got = posix::retried([&] { return ::read(inotify_.get(), buffer.data(), buffer.size()); });
  bool content = false;
  bool place = false;
  for (std::size_t at = 0; got > 0 && at < static_cast<std::size_t>(got);) {
    inotify_event event;
    std::memcpy(&event, buffer.data() + at, sizeof event);
    const std::string_view name = event.len > 0 ? std::string_view(buffer.data() + at + sizeof event) : "";
    at += sizeof event + event.len;
    if (event.wd == fileWatch_ && event.mask == IN_MODIFY) {
      content = true;
    } else if (name.empty() || name == name_) {  // the file, the folder itself, or events that were lost
      place = true;
    }
  }
  const auto changed = changed_;
  if (place) {
    (*changed)(Change::place);
  } else if (content) {
    (*changed)(Change::content);
  }
}

void FileObserver::pollAfter(milliseconds delay) {
  timer_ = EventLoop::main().after(delay, [this] {
    const auto changed = changed_;
    delay_ = std::min(2 * delay_, kLongestPause);
    pollAfter(delay_);
    (*changed)(++polls_ % kPollsPerLookAtPlace == 0 ? Change::place : Change::content);
  });
}

}  // namespace tks::gnulinux
