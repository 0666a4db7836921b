#include "platform/linux/loop/worker_thread.h"

#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "platform/linux/loop/system_calls.h"
#include "platform/posix/forked_copy.h"

namespace tks::gnulinux {
namespace {

using Work = std::function<void()>;

void* threadMain(void* argument) {
  const std::unique_ptr<Work> work(static_cast<Work*>(argument));
  ::pthread_setname_np(::pthread_self(), "tksinterface");
  (*work)();
  return nullptr;
}

}  // namespace

int startWorkerThread(Work work) {
  if (posix::isForkedCopy()) return EAGAIN;
  std::unique_ptr<Work> kept(new (std::nothrow) Work(std::move(work)));
  if (!kept) return ENOMEM;
  sigset_t all;
  ::sigfillset(&all);
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  ::pthread_attr_setsigmask_np(&attributes, &all);
  pthread_t thread{};
  posix::claimProcess();
  const int refused = systemCalls().threadCreate(&thread, &attributes, &threadMain, kept.get());
  ::pthread_attr_destroy(&attributes);
  if (refused == 0) kept.release();
  return refused;
}

}  // namespace tks::gnulinux
