#pragma once

// What the back end for macOS uses of libdispatch and of CoreFoundation's run loop, for Linux: Debian 12 has no package
// of either. The meanings are those of macOS's headers as far as they are used; see dispatch.mm.

#include <cstddef>
#include <cstdint>

namespace tks::gnustep {
struct Queue;
struct Semaphore;
struct Source;
struct SourceType;
}  // namespace tks::gnustep

using dispatch_block_t = void (^)();
using dispatch_queue_t = tks::gnustep::Queue*;
using dispatch_semaphore_t = tks::gnustep::Semaphore*;
using dispatch_source_t = tks::gnustep::Source*;
using dispatch_source_type_t = const tks::gnustep::SourceType*;
/// Nanoseconds of the steady clock.
using dispatch_time_t = std::uint64_t;

inline constexpr dispatch_time_t DISPATCH_TIME_NOW = 0;
inline constexpr dispatch_time_t DISPATCH_TIME_FOREVER = ~dispatch_time_t{0};
inline constexpr std::uint64_t NSEC_PER_MSEC = 1'000'000;
inline constexpr std::uint64_t NSEC_PER_SEC = 1'000'000'000;
inline constexpr std::nullptr_t DISPATCH_QUEUE_SERIAL = nullptr;
enum { QOS_CLASS_DEFAULT = 0x15 };
enum : unsigned long { DISPATCH_PROC_EXIT = 0x80000000 };
enum : unsigned long {
  DISPATCH_VNODE_DELETE = 0x1,
  DISPATCH_VNODE_WRITE = 0x2,
  DISPATCH_VNODE_EXTEND = 0x4,
  DISPATCH_VNODE_ATTRIB = 0x8,
  DISPATCH_VNODE_LINK = 0x10,
  DISPATCH_VNODE_RENAME = 0x20,
  DISPATCH_VNODE_REVOKE = 0x40
};

extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_DATA_ADD;
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_PROC;
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_READ;
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_TIMER;
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_VNODE;
extern const dispatch_source_type_t DISPATCH_SOURCE_TYPE_WRITE;

dispatch_queue_t dispatch_get_main_queue();
dispatch_queue_t dispatch_get_global_queue(long quality, unsigned long flags);
dispatch_queue_t dispatch_queue_create(const char* label, std::nullptr_t serial);
void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* value, std::nullptr_t destructor);
void* dispatch_get_specific(const void* key);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block);
dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t nanoseconds);

dispatch_semaphore_t dispatch_semaphore_create(long value);
long dispatch_semaphore_signal(dispatch_semaphore_t semaphore);
long dispatch_semaphore_wait(dispatch_semaphore_t semaphore, dispatch_time_t until);

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, std::uintptr_t handle, unsigned long mask,
                                         dispatch_queue_t queue);
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_source_set_cancel_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, std::uint64_t interval,
                               std::uint64_t leeway);
void dispatch_source_merge_data(dispatch_source_t source, unsigned long value);
void dispatch_source_cancel(dispatch_source_t source);
long dispatch_source_testcancel(dispatch_source_t source);
void dispatch_resume(dispatch_source_t source);

using CFRunLoopRef = const void*;
inline constexpr const char* kCFRunLoopDefaultMode = "default";
CFRunLoopRef CFRunLoopGetCurrent();
CFRunLoopRef CFRunLoopGetMain();
int CFRunLoopRunInMode(const char* mode, double seconds, bool returnsAfterSource);

namespace tks::gnustep {

/// While it exists the main queue's work is done on a thread of its own, and the main thread is none of the queue's any
/// more, as after dispatch_main().
class MainQueueElsewhere {
 public:
  MainQueueElsewhere();
  ~MainQueueElsewhere();
  MainQueueElsewhere(const MainQueueElsewhere&) = delete;
  MainQueueElsewhere& operator=(const MainQueueElsewhere&) = delete;

 private:
  /// Raised once the thread does no more work of the queue.
  const dispatch_semaphore_t over_;
};

}  // namespace tks::gnustep
