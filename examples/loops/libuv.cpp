// A host with a libuv loop. A poll handle on the library's descriptor does the library's work among the host's own, on
// the thread that runs the loop.
//
//   loop_libuv LAUNCHER    launches a meeting through the launcher at this path

#include <tksinterface/tksinterface.h>
#include <uv.h>

#include <iostream>

int main(int count, char** arguments) {
  if (count < 2) return 2;
  uv_loop_t* loop = uv_default_loop();
  uv_poll_t watched;
  uv_poll_init(loop, &watched, TKSMainLoop::descriptor());
  uv_poll_start(&watched, UV_READABLE, [](uv_poll_t*, int, int) { TKSMainLoop::drain(); });
  // Without other handles the loop ends with this one.
  const auto end = [&] { uv_close(reinterpret_cast<uv_handle_t*>(&watched), nullptr); };

  int exitCode = 1;
  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setTKSAppPath(arguments[1]);
  tks.launchMeetingWithParam(
      TKSDictionary{{tks_param_key_gpcsitedomain, "https://meet.tarvo.example"}},
      [&] {
        std::cerr << "The meeting was launched.\n";
        exitCode = 0;
        end();
      },
      [&](const TKSError& error) {
        std::cerr << error.localizedDescription << "\n";
        end();
      });
  uv_run(loop, UV_RUN_DEFAULT);
  uv_loop_close(loop);
  return exitCode;
}
