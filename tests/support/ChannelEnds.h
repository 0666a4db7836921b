#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/channels.h"

namespace tks::test {

/// Reads a source as the library's own reader does: once for each call, at most `atOnce` bytes.
class Collector {
 public:
  explicit Collector(platform::ByteSource& source, std::size_t atOnce = 4096) : source_(source), buffer_(atOnce) {
    source_.watch([this] { readOnce(); });
  }
  ~Collector() { source_.unwatch(); }
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  const std::string& bytes() const { return bytes_; }
  int calls() const { return calls_; }
  int ends() const { return ends_; }
  const std::vector<TKSError>& errors() const { return errors_; }

 private:
  void readOnce() {
    ++calls_;
    const platform::Transfer transfer = source_.read(buffer_);
    bytes_.append(buffer_.data(), transfer.count);
    ends_ += transfer.end ? 1 : 0;
    if (transfer.error) errors_.push_back(*transfer.error);
  }

  platform::ByteSource& source_;
  std::vector<char> buffer_;
  std::string bytes_;
  int calls_ = 0;
  int ends_ = 0;
  std::vector<TKSError> errors_;
};

/// Bytes in which every place can be told from every other nearby.
inline std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t index = 0; index < size; ++index) bytes[index] = static_cast<char>(index * 31 + (index >> 8) * 7);
  return bytes;
}

/// Writes all bytes, waiting on the main loop where the channel takes no more. False when it breaks.
class Feeder {
 public:
  Feeder(platform::ByteSink& sink, std::string_view bytes) : sink_(sink), left_(bytes) { feed(); }

  bool done() const { return left_.empty(); }
  bool broken() const { return broken_; }

 private:
  void feed() {
    while (!left_.empty()) {
      const platform::Transfer transfer = sink_.write(left_);
      left_.remove_prefix(transfer.count);
      broken_ = transfer.error.has_value();
      if (broken_) return;
      if (transfer.count == 0) return sink_.whenWritable([this] { feed(); });
    }
  }

  platform::ByteSink& sink_;
  std::string_view left_;
  bool broken_ = false;
};

}  // namespace tks::test
