#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fake_launcher {

/// Writes everything, or ends the process when it cannot.
void writeOut(int descriptor, const char* data, std::size_t size);

/// The channel to the host, both ends.
class Channel {
 public:
  virtual ~Channel() = default;
  /// Waits for bytes; 0 when the host is gone.
  virtual std::size_t read(char* into, std::size_t size) = 0;
  virtual int output() const = 0;

  /// As a whole, or as the switches say.
  void write(std::string_view data);

 private:
  std::uint64_t written_ = 0;
};

class PipeChannel final : public Channel {
 public:
  std::size_t read(char* into, std::size_t size) override;
  int output() const override;
};

class FileChannel final : public Channel {
 public:
  explicit FileChannel(const std::string& folder);

  std::size_t read(char* into, std::size_t size) override;
  int output() const override { return output_; }
  bool isOpen() const { return input_ >= 0 && output_ >= 0; }

 private:
  int input_;
  int output_;
  pid_t host_;
};

}  // namespace fake_launcher
