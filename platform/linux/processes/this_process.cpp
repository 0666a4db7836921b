#include "platform/this_process.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <random>
#include <string_view>

#include "platform/backend.h"
#include "platform/linux/processes/kept_memory.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/forked_copy.h"

namespace tks::platform {
namespace {

using RandomBytes = std::array<unsigned char, 16>;

RandomBytes randomBytes() {
  RandomBytes bytes{};
  const auto got = posix::retried([&] { return ::getrandom(bytes.data(), bytes.size(), 0); });
  if (got == static_cast<ssize_t>(bytes.size())) return bytes;
  std::random_device device;  // the same source by another way, for kernels that refuse the call
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(device());
  return bytes;
}

class LinuxProcess final : public ThisProcess {
 public:
  std::int32_t identifier() override { return ::getpid(); }
  bool refusesAsForkedCopy(std::string_view operation) override { return posix::refusesAsForkedCopy(operation); }
  std::uint32_t threadNumber() override { return static_cast<std::uint32_t>(::gettid()); }

  std::string threadDescription() override {
    std::array<char, 16> name{};
    ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    return "<Thread>{number = " + std::to_string(threadNumber()) + ", name = " + name.data() + "}";
  }

  void giveMemoryBack() override {
    gnulinux::KeptMemory::drop();
    ::malloc_trim(0);
  }

  /// Version 4, variant 1: four and two of the random bits are fixed.
  std::string randomUUID() override {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    RandomBytes bytes = randomBytes();
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
      if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
      text += kDigits[bytes[index] >> 4];
      text += kDigits[bytes[index] & 0x0F];
    }
    return text;
  }

  bool isCatalinaOrLater() override { return true; }
};

}  // namespace

template <>
ThisProcess& backend<ThisProcess>() {
  static auto& process = *new LinuxProcess;
  return process;
}

}  // namespace tks::platform
