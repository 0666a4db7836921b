// A host with a GLib main loop. A source on the library's descriptor does the library's work among the host's own, on
// the thread that runs the loop.
//
//   embed_glib EXECUTABLE    starts an executable of a bundle in the background and reports the result

#include <glib-unix.h>
#include <glib.h>
#include <tksinterface/tksinterface.h>

#include <iostream>
#include <optional>

namespace {

gboolean drain(gint, GIOCondition, gpointer) {
  TKSMainLoop::drain();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int count, char** arguments) {
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  const guint source = g_unix_fd_add(TKSMainLoop::descriptor(), G_IO_IN, drain, nullptr);

  TKSUtilBase::launchAppWithExePath(
      count > 1 ? arguments[1] : "", {},
      [&](const std::optional<TKSRunningApplication>& application, const std::optional<TKSError>& error) {
        if (application) std::cout << "runs as process " << application->processIdentifier << "\n";
        if (error) std::cout << error->localizedDescription << "\n";
        g_main_loop_quit(loop);
      });
  g_main_loop_run(loop);

  g_source_remove(source);
  g_main_loop_unref(loop);
  return 0;
}
