#include <tksinterface/TKSILog.h>

#include <new>
#include <utility>

#include <tksinterface/MaskSensitiveInformation.h>

#include "foundation/logging/HeldLines.h"
#include "foundation/logging/LineDelivery.h"
#include "foundation/values/InstalledCallback.h"

namespace {

tks::InstalledCallback<TKSLogBlock>& installedBlock() {
  static auto& block = *new tks::InstalledCallback<TKSLogBlock>;
  return block;
}

thread_local int linesInDelivery = 0;

/// Hands a line to the host. `text` makes it, if there is a host to hand it to.
template <class Text>
void handOver(std::int32_t level, Text text) noexcept {
  const tks::CallDepth depth(linesInDelivery);
  if (!depth.isServed()) return;
  try {
    const auto block = installedBlock().get();
    if (block) (*block)(level, text());
  } catch (...) {
    // A log callback has nowhere left to report to.
  }
}

thread_local tks::HeldLines* innermostHeldLines = nullptr;

}  // namespace

tks::HeldLines::HeldLines() noexcept : outer_(std::exchange(innermostHeldLines, this)) {}

tks::HeldLines::~HeldLines() {
  innermostHeldLines = outer_;
  for (auto& [level, text] : lines_) {
    if (outer_ == nullptr) {
      handOver(level, [&line = text]() -> const std::string& { return line; });
      continue;
    }
    try {
      outer_->keep(level, std::move(text));
    } catch (const std::bad_alloc&) {
      // A line less.
    }
  }
}

tks::HeldLines* tks::HeldLines::current() noexcept { return innermostHeldLines; }

bool tks::isDeliveringLine() noexcept { return linesInDelivery > 0; }

std::atomic<bool> TKSILog::listening_ = false;

TKSILog& TKSILog::sharedInstance() {
  static auto& log = *new TKSILog;
  return log;
}

TKSLogBlock TKSILog::logBlock() const { return installedBlock().copy(); }

void TKSILog::setLogBlock(TKSLogBlock block) { installedBlock().set(std::move(block), listening_); }

void TKSILog::deliver(std::int32_t level, std::string_view format, std::span<const tks::format::Argument> arguments) {
  tks::HeldLines* const held = tks::HeldLines::current();
  if (held == nullptr) return handOver(level, [&] { return tks::format::format(format, arguments); });
  try {
    held->keep(level, tks::format::format(format, arguments));
  } catch (...) {
    // Neither memory nor a description that throws may end what the line is about.
  }
}

std::string TKSILog::removeSensitiveInformation(std::string_view text) {
  return MaskSensitiveInformation::removeSensitiveInformation(text);
}

std::string TKSILog::removeSensitiveInformation(const std::string& text) {
  return removeSensitiveInformation(std::string_view(text));
}

std::string TKSILog::removeSensitiveInformation(const char* text) { return removeSensitiveInformation(TKSValue(text)); }

std::string TKSILog::removeSensitiveInformation(const TKSValue& object) {
  return object.isText() ? removeSensitiveInformation(object.text())
                         : removeSensitiveInformation(std::string_view(object.description()));
}

std::string TKSILog::addMask(std::string_view text) { return MaskSensitiveInformation::addMask(text); }

std::string TKSILog::addMask(const std::string& text) { return addMask(std::string_view(text)); }

std::string TKSILog::addMask(const char* text) { return addMask(TKSValue(text)); }

std::string TKSILog::addMask(const TKSValue& object) {
  return object.isText() ? addMask(object.text()) : addMask(std::string_view(object.description()));
}
