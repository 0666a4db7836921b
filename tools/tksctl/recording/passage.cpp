#include "tools/tksctl/recording/passage.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <utility>

#include "platform/posix/whole_files.h"

namespace tks::ctl {
namespace {

posix::FileDescriptor copyOf(int descriptor) { return posix::FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3)); }

}  // namespace

Passage::Passage(int from, int to, Direction direction, Recorder& recorder)
    : from_(copyOf(from)),
      to_(copyOf(to)),
      direction_(direction),
      recorder_(recorder),
      frames_(
          [this](std::string_view payload) {
            RecordedEvent event = made("message", {});
            describePayload(event, payload);
            recorder_.add(std::move(event));
          },
          [this](std::string_view why) { recorder_.add(made("noMessage", why)); }) {}

RecordedEvent Passage::made(std::string_view event, std::string_view note) const {
  RecordedEvent event_;
  event_.event = event;
  event_.direction = direction_;
  event_.channel = "pipe";
  event_.note = note;
  return event_;
}

/// False once there is nothing to wait for any more.
bool Passage::waitForBytes(int stop) const {
  pollfd watched[] = {{from_.get(), POLLIN, 0}, {stop, POLLIN, 0}};
  if (posix::retried([&] { return ::poll(watched, 2, -1); }) < 0) return false;
  return watched[0].revents != 0;
}

void Passage::run(int stop) {
  std::array<char, 65536> piece;
  while (waitForBytes(stop)) {
    const ssize_t count = posix::retried([&] { return ::read(from_.get(), piece.data(), piece.size()); });
    if (count <= 0) break;
    const auto size = static_cast<std::size_t>(count);
    // First what is recorded, so that no answer stands before its question.
    frames_.take({piece.data(), size});
    if (!posix::writeAll(to_.get(), {reinterpret_cast<const std::uint8_t*>(piece.data()), size})) break;
  }
  frames_.end();
  recorder_.add(made("closed", {}));
  from_.reset();
  to_.reset();
}

}  // namespace tks::ctl
