#include "platform/main_loop.h"

#include <utility>

#include "platform/backend.h"
#include "platform/linux/loop/event_loop.h"

namespace tks::platform {
namespace {

class LinuxMainLoop final : public MainLoop {
 public:
  void post(std::function<void()> work) override { loop_.post(std::move(work)); }
  std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> work) override {
    return loop_.after(delay, std::move(work));
  }
  bool isMainThread() override { return loop_.isMainThread(); }
  void run() override { loop_.run(); }
  void stop() override { loop_.stop(); }
  int descriptor() override { return loop_.descriptor(); }
  void drain() override { loop_.drain(); }

 private:
  gnulinux::EventLoop& loop_ = gnulinux::EventLoop::main();
};

}  // namespace

template <>
MainLoop& backend<MainLoop>() {
  static auto& loop = *new LinuxMainLoop;
  return loop;
}

}  // namespace tks::platform
