// A host with a poll loop of its own. It watches one descriptor more, the library's, and drains it when it is readable:
// that is all. Callbacks then arrive on this thread.
//
//   loop_poll LAUNCHER    launches a meeting through the launcher at this path

#include <poll.h>
#include <tksinterface/tksinterface.h>

#include <iostream>

int main(int count, char** arguments) {
  if (count < 2) return 2;
  bool running = true;
  int exitCode = 1;
  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setTKSAppPath(arguments[1]);
  tks.launchMeetingWithParam(
      TKSDictionary{{tks_param_key_gpcsitedomain, "https://meet.tarvo.example"}},
      [&] {
        std::cerr << "The meeting was launched.\n";
        exitCode = 0;
        running = false;
      },
      [&](const TKSError& error) {
        std::cerr << error.localizedDescription << "\n";
        running = false;
      });

  while (running) {
    // The host's own descriptors stand here as well. The library wakes the host when there is something to do, so that
    // the time limit is the host's alone.
    pollfd watched[] = {{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0}};
    const int ready = ::poll(watched, 1, 1000);
    if (ready > 0 && watched[0].revents != 0) TKSMainLoop::drain();
  }
  return exitCode;
}
