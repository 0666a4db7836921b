// A host that waits in epoll, edge-triggered, as servers do. One drain for each edge is enough: it does all work that
// is due, and what is left when work keeps making more is a new edge.
//
//   loop_epoll_edge LAUNCHER    launches a meeting through the launcher at this path

#include <sys/epoll.h>
#include <tksinterface/tksinterface.h>
#include <unistd.h>

#include <iostream>

int main(int count, char** arguments) {
  if (count < 2) return 2;
  const int loop = ::epoll_create1(EPOLL_CLOEXEC);
  epoll_event watched{};
  watched.events = EPOLLIN | EPOLLET;
  watched.data.fd = TKSMainLoop::descriptor();
  ::epoll_ctl(loop, EPOLL_CTL_ADD, TKSMainLoop::descriptor(), &watched);

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
    epoll_event ready[16];
    const int found = ::epoll_wait(loop, ready, 16, -1);
    for (int i = 0; i < found; ++i) {
      if (ready[i].data.fd == TKSMainLoop::descriptor()) TKSMainLoop::drain();
    }
  }
  ::close(loop);
  return exitCode;
}
