#pragma once

#include <tksinterface/TKSMainLoop.h>

#include <asio/error_code.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <memory>

namespace tks {

/// Lets an Asio loop do the library's work among its own, for as long as this object lives: the thread that runs the
/// loop is the main thread. `run` of the io_context does not return before the object is destroyed or the loop stopped.
/// It may be destroyed in any callback. One thread only.
class AsioLoop {
 public:
  /// `executor`: for example an io_context's, which one thread runs.
  explicit AsioLoop(const asio::any_io_executor& executor) : watch_(std::make_shared<Watch>(executor)) {
    Watch::wait(watch_);
  }
  // The descriptor is the library's, and stays open.
  ~AsioLoop() { watch_->descriptor.release(); }
  AsioLoop(const AsioLoop&) = delete;
  AsioLoop& operator=(const AsioLoop&) = delete;

 private:
  struct Watch {
    explicit Watch(const asio::any_io_executor& executor) : descriptor(executor, TKSMainLoop::descriptor()) {}

    static void wait(const std::shared_ptr<Watch>& watch) {
      watch->descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                                   [weak = std::weak_ptr<Watch>(watch)](const asio::error_code& error) {
                                     if (error || weak.expired()) return;
                                     TKSMainLoop::drain();
                                     if (const std::shared_ptr<Watch> still = weak.lock()) wait(still);
                                   });
    }

    asio::posix::stream_descriptor descriptor;
  };

  const std::shared_ptr<Watch> watch_;
};

}  // namespace tks
