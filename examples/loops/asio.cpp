// A host with an Asio loop. The adapter watches the library's descriptor and does the library's work on the thread that
// runs the loop.
//
//   loop_asio LAUNCHER    launches a meeting through the launcher at this path

#include <tksinterface/loops/asio.h>
#include <tksinterface/tksinterface.h>

#include <asio/io_context.hpp>

#include <iostream>
#include <optional>

int main(int count, char** arguments) {
  if (count < 2) return 2;
  asio::io_context loop;
  std::optional<tks::AsioLoop> adapter(loop.get_executor());

  int exitCode = 1;
  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setTKSAppPath(arguments[1]);
  tks.launchMeetingWithParam(
      TKSDictionary{{tks_param_key_gpcsitedomain, "https://meet.tarvo.example"}},
      [&] {
        std::cerr << "The meeting was launched.\n";
        exitCode = 0;
        adapter.reset();
      },
      [&](const TKSError& error) {
        std::cerr << error.localizedDescription << "\n";
        adapter.reset();
      });
  loop.run();
  return exitCode;
}
