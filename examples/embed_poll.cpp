// A host with a poll loop of its own. It watches one descriptor more, the library's, and drains it when it is readable:
// that is all. Callbacks then arrive on this thread.
//
//   embed_poll EXECUTABLE    starts an executable of a bundle in the background and reports the result

#include <poll.h>
#include <tksinterface/tksinterface.h>

#include <iostream>
#include <optional>

int main(int count, char** arguments) {
  bool running = true;
  TKSUtilBase::launchAppWithExePath(
      count > 1 ? arguments[1] : "", {},
      [&](const std::optional<TKSRunningApplication>& application, const std::optional<TKSError>& error) {
        if (application) std::cout << "runs as process " << application->processIdentifier << "\n";
        if (error) std::cout << error->localizedDescription << "\n";
        running = false;
      });

  while (running) {
    // The host's own descriptors stand here as well. The library wakes the host when there is something to do, so that
    // the time limit is the host's alone.
    pollfd watched[] = {{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0}};
    const int ready = ::poll(watched, 1, 1000);
    if (ready > 0 && watched[0].revents != 0) TKSMainLoop::drain();
  }
  return 0;
}
