#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSValue.h>

#include "tools/tksctl/frame/output.h"

namespace tks::ctl {

/// Shows the conversations of this process as they go, masked, and keeps them for the document. Ends the watching when
/// it goes.
class ConversationView {
 public:
  explicit ConversationView(Output& out);
  ~ConversationView();
  ConversationView(const ConversationView&) = delete;
  ConversationView& operator=(const ConversationView&) = delete;

  /// The events so far: seconds since the beginning, what, text, process.
  TKSArray events() const;

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace tks::ctl
