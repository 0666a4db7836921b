#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

/// One direction of a channel, in memory. The writer's end is a ByteSink, the reader's a ByteSource; a test that plays
/// the peer puts bytes in and takes bytes out itself. Main thread only.
class Wire : public std::enable_shared_from_this<Wire> {
 public:
  Wire() {
    static std::uint64_t made = 0;
    identity = {.device = 0, .object = ++made};
  }

  platform::ChannelIdentity identity;

  // What the peer does at the other end of a host's input.

  /// Bytes that one read gives at most; a read never gives more than one of these.
  void arrive(std::string bytes) {
    pieces_.push_back(std::move(bytes));
    wakeReader();
  }
  void end() {
    ended_ = true;
    wakeReader();
  }
  void breakDown(TKSError error) {
    readFailure_ = std::move(error);
    wakeReader();
  }
  std::size_t unread() const {
    std::size_t bytes = 0;
    for (const std::string& piece : pieces_) bytes += piece.size();
    return bytes;
  }

  // What the peer does at the other end of a host's output.

  std::string written;
  /// Bytes that the wire takes before it is full.
  std::size_t room = std::numeric_limits<std::size_t>::max();
  /// The most that one write moves.
  std::size_t mostPerWrite = std::numeric_limits<std::size_t>::max();
  std::optional<TKSError> writeFailure;
  bool readerIsGone = false;
  /// Called with what each write moved.
  std::function<void(std::string_view bytes)> onWrite;
  /// Sizes of the frames that the writer told of.
  std::deque<std::size_t> expected;
  std::size_t writes = 0;

  /// The peer reads everything; the wire takes `more` bytes again.
  std::string take(std::size_t more = std::numeric_limits<std::size_t>::max()) {
    room = more;
    if (auto ready = std::exchange(writable_, nullptr)) platform::mainLoop().post(std::move(ready));
    return std::exchange(written, {});
  }
  bool writerWaits() const { return static_cast<bool>(writable_); }

 private:
  friend class WireSource;
  friend class WireSink;

  bool isReadable() const { return !pieces_.empty() || (!endTold_ && (ended_ || readFailure_)); }
  void wakeReader() {
    if (!reader_ || !isReadable() || wakeUpPosted_) return;
    wakeUpPosted_ = true;
    platform::mainLoop().post([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->wakeUpPosted_ = false;
      if (!self->reader_ || !self->isReadable()) return;
      const std::function<void()> ready = self->reader_;
      ready();
      self->wakeReader();
    });
  }

  std::deque<std::string> pieces_;
  bool ended_ = false;
  bool endTold_ = false;
  std::optional<TKSError> readFailure_;
  std::function<void()> reader_;
  bool wakeUpPosted_ = false;
  std::function<void()> writable_;
  const void* waitingSink_ = nullptr;
};

class WireSource final : public platform::ByteSource {
 public:
  explicit WireSource(std::shared_ptr<Wire> wire) : wire_(std::move(wire)) { wire_->endTold_ = false; }
  ~WireSource() override { unwatch(); }

  platform::ChannelIdentity identity() const override { return wire_->identity; }
  platform::Transfer read(std::span<char> into) override {
    platform::Transfer transfer;
    if (wire_->pieces_.empty()) {
      transfer.end = wire_->ended_ && !wire_->readFailure_;
      transfer.error = wire_->readFailure_;
      wire_->endTold_ = wire_->ended_ || wire_->readFailure_;
      return transfer;
    }
    std::string& piece = wire_->pieces_.front();
    transfer.count = piece.copy(into.data(), into.size());
    piece.erase(0, transfer.count);
    if (piece.empty()) wire_->pieces_.pop_front();
    return transfer;
  }
  void watch(std::function<void()> ready) override {
    wire_->reader_ = std::move(ready);
    wire_->wakeReader();
  }
  void unwatch() override { wire_->reader_ = nullptr; }

 private:
  std::shared_ptr<Wire> wire_;
};

class WireSink final : public platform::ByteSink {
 public:
  explicit WireSink(std::shared_ptr<Wire> wire) : wire_(std::move(wire)) {}
  ~WireSink() override {
    if (wire_->waitingSink_ == this) wire_->writable_ = nullptr;
  }

  platform::ChannelIdentity identity() const override { return wire_->identity; }
  platform::Transfer write(std::span<const char> bytes) override {
    ++wire_->writes;
    if (wire_->writeFailure) return {.count = 0, .end = false, .error = wire_->writeFailure};
    if (wire_->readerIsGone) return {.count = 0, .end = true, .error = std::nullopt};
    const std::size_t count = std::min({bytes.size(), wire_->room, wire_->mostPerWrite});
    wire_->written.append(bytes.data(), count);
    wire_->room -= count;
    if (wire_->onWrite) wire_->onWrite({bytes.data(), count});
    return {.count = count, .end = false, .error = std::nullopt};
  }
  void expect(std::size_t size) override { wire_->expected.push_back(size); }
  void whenWritable(std::function<void()> ready) override {
    if (wire_->room > 0) {
      platform::mainLoop().post(std::move(ready));
    } else {
      wire_->writable_ = std::move(ready);
      wire_->waitingSink_ = this;
    }
  }

 private:
  std::shared_ptr<Wire> wire_;
};

/// Channels in memory, for a scope. `input` and `output` are those of the process; a test puts other wires in their
/// place to play a new launch.
class MemoryChannels final : public platform::Channels {
 public:
  std::shared_ptr<Wire> input = std::make_shared<Wire>();
  std::shared_ptr<Wire> output = std::make_shared<Wire>();

  std::unique_ptr<platform::ByteSource> standardInput(TKSError* error) override {
    if (!input) return fail(error);
    return std::make_unique<WireSource>(input);
  }
  std::shared_ptr<platform::ByteSink> standardOutput(TKSError* error) override {
    if (!output) return fail(error);
    return std::make_shared<WireSink>(output);
  }
  /// Ends of conversations over the process's channels: what they read from, and whether in good order.
  std::vector<std::pair<platform::ChannelIdentity, bool>> endsOfTalk;
  void endOfTalk(const platform::ChannelIdentity& channel, bool inGoodOrder) override {
    endsOfTalk.emplace_back(channel, inGoodOrder);
  }
  std::unique_ptr<platform::ByteSource> fileSource(std::string_view path, TKSError* error) override {
    return replaced_.before().fileSource(path, error);
  }
  std::shared_ptr<platform::ByteSink> fileSink(std::string_view path, TKSError* error) override {
    return replaced_.before().fileSink(path, error);
  }

 private:
  static std::nullptr_t fail(TKSError* error) {
    if (error != nullptr) *error = {"POSIX", 9, "There is no such channel"};
    return nullptr;
  }

  platform::Replaced<platform::Channels> replaced_{*this};
};

}  // namespace tks::test
