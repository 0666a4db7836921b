// A host with a GLib main loop. A source on the library's descriptor does the library's work among the host's own, on
// the thread that runs the loop.
//
//   loop_glib LAUNCHER    launches a meeting through the launcher at this path

#include <glib-unix.h>
#include <glib.h>
#include <tksinterface/tksinterface.h>

#include <iostream>

namespace {

gboolean drain(gint, GIOCondition, gpointer) {
  TKSMainLoop::drain();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) return 2;
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  const guint source = g_unix_fd_add(TKSMainLoop::descriptor(), G_IO_IN, drain, nullptr);

  int exitCode = 1;
  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setTKSAppPath(arguments[1]);
  tks.launchMeetingWithParam(
      TKSDictionary{{tks_param_key_gpcsitedomain, "https://meet.tarvo.example"}},
      [&] {
        std::cerr << "The meeting was launched.\n";
        exitCode = 0;
        g_main_loop_quit(loop);
      },
      [&](const TKSError& error) {
        std::cerr << error.localizedDescription << "\n";
        g_main_loop_quit(loop);
      });
  g_main_loop_run(loop);

  g_source_remove(source);
  g_main_loop_unref(loop);
  return exitCode;
}
