#include "tools/tksctl/recording/recorder.h"

#include <fcntl.h>

#include <span>
#include <string>
#include <utility>

#include "platform/platform.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/whole_files.h"

namespace tks::ctl {

Recorder::Recorder(posix::FileDescriptor file) : file_(std::move(file)) {}

Recorder::~Recorder() {
  if (isWatching_) TKSConversationObserver::observe(std::move(before_));
}

std::unique_ptr<Recorder> Recorder::create(std::string_view path, TKSError* error) {
  const std::string name(path);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
  posix::FileDescriptor file(posix::retried([&] { return ::open(name.c_str(), kFlags, 0600); }));
  if (!file) {
    posix::fail(error, "record", path);
    return nullptr;
  }
  std::unique_ptr<Recorder> recorder(new Recorder(std::move(file)));
  recorder->writeText(headLine(platform::clock().secondsSince1970()));
  return recorder;
}

void Recorder::watch() {
  isWatching_ = true;
  before_ = TKSConversationObserver::observer();
  TKSConversationObserver::observe([this](const TKSConversationEvent& event) {
    write(recorded(event, beginning_));
    if (before_) before_(event);
  });
}

void Recorder::add(RecordedEvent event) {
  event.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - beginning_).count();
  event.time = momentWithMilliseconds(platform::clock().secondsSince1970());
  write(event);
}

void Recorder::write(const RecordedEvent& event) { writeText(lineOf(event)); }

void Recorder::writeText(std::string_view text) {
  const std::scoped_lock lock(mutex_);
  // After a line that is cut nothing else could be read.
  if (!isWhole_) return;
  isWhole_ = posix::writeAll(file_.get(), std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

bool Recorder::isWhole() const {
  const std::scoped_lock lock(mutex_);
  return isWhole_;
}

}  // namespace tks::ctl
