// A host that cannot watch descriptors, a game's frame loop for example: it drains in every frame. A drain with nothing
// to do costs one system call.
//
//   loop_timer LAUNCHER    launches a meeting through the launcher at this path

#include <tksinterface/tksinterface.h>

#include <chrono>
#include <iostream>
#include <thread>

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
    std::this_thread::sleep_for(std::chrono::milliseconds(16));
    TKSMainLoop::drain();
  }
  return exitCode;
}
