#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>

#include "platform/platform.h"
#include "tests/platform/linux/channels/FileChannelTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/StoppedAtEachCall.h"

namespace {

using namespace tks::test;
using tks::platform::channels;
using tks::platform::mainLoop;

enum Outcome { kGoesOn, kBroken, kNotOpened };

/// FILE: watches it for two turns of the loop, from where it stops itself.
int watchFile(const Arguments& arguments) {
  const auto source = channels().fileSource(arguments.at(0), nullptr);
  if (!source) return kNotOpened;
  Outcome outcome = kGoesOn;
  source->watch([&] {
    std::array<char, 16> into{};
    if (source->read(into).error) outcome = kBroken;
  });
  mainLoop().post([] { mainLoop().post([] { mainLoop().stop(); }); });
  ::raise(SIGSTOP);
  mainLoop().run();
  ::_exit(outcome);  // no sanitizer looks for leaks in a process that is traced
}
const ChildRole kWatch("watch-file", watchFile);

using DroppedName = FileChannel;

TEST_F(DroppedName, IsNoLossForWhoeverLooksAtTheFileJustThen) {
  std::shared_ptr<tks::platform::ByteSink> sink;
  const int stops = stoppedAtEachCall("watch-file", {path},
                                      {.before =
                                           [&] {
                                             writeFile(path, "");
                                             sink = openSink();
                                           },
                                       .meanwhile = [&] { EXPECT_TRUE(sink->dropName(nullptr)); },
                                       .afterwards = [](int outcome) { EXPECT_EQ(outcome, kGoesOn); }});
  if (stops < 0) GTEST_SKIP() << "processes may not be traced here";
  EXPECT_GT(stops, 8) << "the calls of a look";
}

}  // namespace
