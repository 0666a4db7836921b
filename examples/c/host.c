// A host in C99: launches one meeting and says how that went.
//
//   c_host LAUNCHER [ARCHIVE VERSION]    the launcher's bundle; a zip archive with a newer one, and its version

#include <stdio.h>
#include <tksinterface/c/tksinterface.h>

// Standard output belongs to the launcher while it is connected: everything for people goes to standard error.

static void log_line(void* context, int32_t level, const char* line) {
  (void)context;
  if (level >= TKS_LOG_WARNING) fprintf(stderr, "%s\n", line);
}

static void finished(void* context) {
  int* exit_code = context;
  *exit_code = 0;
  fprintf(stderr, "The meeting was launched.\n");
  tks_main_loop_stop();
}

static void failed(void* context, const tks_error* error) {
  (void)context;
  fprintf(stderr, "The meeting was not launched: %s (%s)\n", error->text, error->reason_name);
  tks_main_loop_stop();
}

int main(int count, char** arguments) {
  int exit_code = 1;
  if (count < 2) {
    fprintf(stderr, "usage: c_host LAUNCHER [ARCHIVE VERSION]\n");
    return 2;
  }
  // Functions may be added within a major version, and none goes away.
  if (tks_c_version() / 1000 != TKS_C_VERSION_MAJOR) return 2;

  tks_set_log(log_line, NULL, NULL);
  tks_set_launcher(arguments[1]);
  if (count > 3) tks_set_backup_archive(arguments[2], arguments[3]);
  tks_launch("{\"gpcsitedomain\": \"https://meet.tarvo.example\", \"meetingkey\": \"123 456 789\"}", finished, failed,
             &exit_code, NULL);
  tks_main_loop_run();
  return exit_code;
}
