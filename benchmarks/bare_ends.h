#pragma once

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tksinterface/TKSMessage.h>

// What messages are measured against: ends of conversations that do nothing but read and write.

namespace tks::benchmarks {

inline constexpr std::size_t kHeaderBytes = 4;

[[noreturn]] inline void giveUp(const char* what) {
  std::perror(what);
  std::_Exit(1);
}

inline void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) giveUp("write");
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// False at the end of the pipe.
inline bool readAll(int descriptor, char* to, std::size_t size) {
  while (size > 0) {
    const ssize_t count = ::read(descriptor, to, size);
    if (count == 0 || (count < 0 && errno != EINTR)) return false;
    if (count > 0) {
      to += count;
      size -= static_cast<std::size_t>(count);
    }
  }
  return true;
}

/// The least of a loop that other things may wake, too: one end of a conversation by epoll, read and write without
/// waiting. With `parses` each message is read from its JSON and written as JSON again.
class BareLoop {
 public:
  BareLoop(int input, int output, std::size_t frameBytes, bool parses)
      : input_(input),
        output_(output),
        parses_(parses),
        epoll_(::epoll_create1(0)),
        waker_(::eventfd(0, EFD_NONBLOCK)) {
    frame_.resize(frameBytes);
    ::fcntl(input, F_SETFL, O_NONBLOCK);
    for (const int watched : {waker_, input}) {
      epoll_event event{};
      event.events = EPOLLIN;
      if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, watched, &event) != 0) giveUp("epoll_ctl");
    }
  }
  ~BareLoop() {
    ::close(epoll_);
    ::close(waker_);
  }
  BareLoop(const BareLoop&) = delete;
  BareLoop& operator=(const BareLoop&) = delete;

  /// False at the end of the pipe.
  bool receive() {
    for (std::size_t have = 0; have < frame_.size();) {
      epoll_event event{};
      if (::epoll_wait(epoll_, &event, 1, -1) < 0 && errno != EINTR) giveUp("epoll_wait");
      const ssize_t count = ::read(input_, frame_.data() + have, frame_.size() - have);
      if (count == 0) return false;
      if (count > 0) have += static_cast<std::size_t>(count);
    }
    return !parses_ || message_.parseJSONString(std::string_view(frame_).substr(kHeaderBytes));
  }

  /// What was received last, where it is parsed.
  const TKSMessage& message() const { return message_; }

  /// Sends a message whose frame has the size of all; without parsing what stands in the frame.
  void send(const TKSMessage& message) {
    if (parses_) frame_.replace(kHeaderBytes, std::string::npos, *message.dumpJSONString());
    writeAll(output_, frame_);
  }

 private:
  const int input_;
  const int output_;
  const bool parses_;
  const int epoll_;
  const int waker_;
  std::string frame_;
  TKSMessage message_;
};

}  // namespace tks::benchmarks
