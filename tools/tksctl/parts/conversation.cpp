#include "tools/tksctl/parts/conversation.h"

#include <tksinterface/TKSILog.h>

#include <cstdio>

#include "tools/tksctl/frame/json_values.h"

namespace tks::ctl {
namespace {

using Kind = TKSConversationEvent::Kind;

struct KindRow {
  Kind kind;
  std::string_view name;
  /// What stands before the text.
  std::string_view shown;
};
constexpr KindRow kKinds[] = {
    {Kind::opened, "opened", "         channel opened"},
    {Kind::closed, "closed", "         channel closed"},
    {Kind::sent, "sent", "host     > "},
    {Kind::notSent, "notSent", "not sent   "},
    {Kind::received, "received", "launcher > "},
    {Kind::fatalError, "fatalError", "broken     "},
    {Kind::started, "started", "         launcher started: "},
    {Kind::ended, "ended", "         launcher ended: "},
};

const KindRow& rowOf(Kind kind) {
  for (const KindRow& row : kKinds) {
    if (row.kind == kind) return row;
  }
  return kKinds[0];
}

}  // namespace

struct ConversationView::Shared {
  explicit Shared(Output& output) : out(output) {}

  void add(const TKSConversationEvent& event) {
    const std::string text = TKSILog::removeSensitiveInformation(validText(event.text));
    const double seconds = std::chrono::duration<double>(event.time - began).count();
    const std::scoped_lock lock(mutex);
    char moment[32];
    std::snprintf(moment, sizeof moment, "%8.3f s  ", seconds);
    out.line(moment + std::string(rowOf(event.kind).shown) + oneLine(text));
    events.append(TKSDictionary{{"time", seconds},
                                {"kind", rowOf(event.kind).name},
                                {"byFile", event.byFile},
                                {"text", text},
                                {"pid", event.processIdentifier}});
  }

  Output& out;
  const std::chrono::steady_clock::time_point began = std::chrono::steady_clock::now();
  std::mutex mutex;
  TKSArray events;
};

ConversationView::ConversationView(Output& out) : shared_(std::make_shared<Shared>(out)) {
  TKSConversationObserver::observe([shared = shared_](const TKSConversationEvent& event) { shared->add(event); });
}

ConversationView::~ConversationView() { TKSConversationObserver::observe({}); }

TKSArray ConversationView::events() const {
  const std::scoped_lock lock(shared_->mutex);
  return shared_->events;
}

}  // namespace tks::ctl
