#include "messaging/PiecePlan.h"

#include <algorithm>
#include <utility>

#include <tksinterface/TKSFormat.h>

#include "messaging/Frame.h"

namespace tks::messaging {
namespace {

using Action = PiecePlan::Action;

PiecePlan refused(std::string problem, std::uint64_t missing) {
  return {.action = Action::refuse, .problem = std::move(problem), .missing = missing};
}

std::string noHeader(std::uint64_t size) {
  std::string text = formatted("Message data size ( %lu ) less than 'sizeOfSize', no pending data.", size);
  if (size == 0) {
    text +=
        " (Empty message probably means parent or child process already exited, while current message host is still "
        "open.)";
  }
  return text;
}

PiecePlan begun(std::string_view piece, std::uint64_t largest) {
  PiecePlan plan{.action = Action::begin, .announced = announcedLength(piece)};
  if (plan.announced > largest) {
    // Goes on with no data at all: the empty text is parsed, and that failure is reported as well.
    plan.problem = formatted("Unexpected telling data size: %i, exceed max message size: %i", plan.announced, largest);
    return plan;
  }
  const std::string_view payload = piece.substr(kHeaderBytes);
  plan.taken = payload.substr(0, static_cast<std::size_t>(plan.announced));
  plan.missing = plan.announced - plan.taken.size();
  plan.hasSurplus = payload.size() > plan.taken.size();
  return plan;
}

}  // namespace

PiecePlan planOf(std::uint64_t missing, std::string_view piece, std::uint64_t largest) {
  const std::uint64_t size = piece.size();
  if (size > largest) {
    return refused(formatted("Unexpected message data size: %lu, exceed max message size: %i", size, largest), missing);
  }
  if (missing == 0) return size < kHeaderBytes ? refused(noHeader(size), 0) : begun(piece, largest);
  if (size == 0) return refused(formatted("Message data empty ( %lu ), pending data expected.", size), missing);
  return {.action = Action::resume, .taken = piece, .missing = missing - std::min(missing, size)};
}

}  // namespace tks::messaging
