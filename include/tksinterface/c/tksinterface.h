#pragma once

#include <stdbool.h>
#include <stdint.h>

#include <tksinterface/TKSVersion.h>

/// The library for hosts in C, and in every language that can call C. C99, and C++ as well.
///
/// Texts are UTF-8 and end with a zero byte. Values (launch parameters, lists) are JSON texts. What a function returns
/// as `char *` belongs to the caller, who gives it to tks_free. What a callback is handed lives until the callback
/// returns.
///
/// Threads: the main thread is the one that runs tks_main_loop_run or tks_main_loop_drain. Finish and error callbacks,
/// and the one for process identifiers, come there; the log callback comes on whichever thread logs.
///
/// Contexts: every callback gets the pointer that was given with it. Where a callback is kept, a release function comes
/// with it. It is called once, when nothing will call back with this context any more, also when the call fails; on the
/// main thread, the log callback's on whichever thread lets go of it last. What is still kept when the process ends is
/// not released. A null pointer stands for an absent callback or release function.
///
/// Nothing is thrown to the caller. A callback of a host in C++ may throw: that is caught, with a log line of level 8.
/// The functions keep their names, types and meaning for as long as TKS_C_VERSION_MAJOR stays the same.

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what the library exports to C.
#define TKS_C_EXPORT __attribute__((visibility("default")))

// Versions. TKS_VERSION is the version of the library that these headers came with.

/// A larger first number is another interface; a larger second one has more functions, or more fields at the end of a
/// struct that the library hands out.
#define TKS_C_VERSION_MAJOR 1
/// See TKS_C_VERSION_MAJOR.
#define TKS_C_VERSION_MINOR 1

/// The C interface of the library that runs: major version * 1000 + minor version. Any thread.
TKS_C_EXPORT int32_t tks_c_version(void);
/// The version of the library that runs, as TKS_VERSION is that of the header. Any thread.
TKS_C_EXPORT int32_t tks_version(void);
/// The same as a text, for example "0.1.0"; never freed. Any thread.
TKS_C_EXPORT const char* tks_version_text(void);

// Memory.

/// Gives back a text that a function of this header returned; a null pointer is fine. Any thread.
TKS_C_EXPORT void tks_free(char* text);

// Errors and callbacks.

/// An error, as long as a callback runs. Never made by hosts; new fields come at the end.
typedef struct tks_error {
  const char* domain;       ///< where the error comes from, for example "TKSIDefaultDomain"
  int64_t code;             ///< its number there
  const char* text;         ///< the reason in words
  int32_t reason;           ///< the kind of failure as a stable number, see docs/errors.md; 0: unspecified
  const char* reason_name;  ///< its stable name, for example "notTrusted"
  const char* suggestion;   ///< what helps, in words; empty when nothing is known to help
} tks_error;

/// Something has been done.
typedef void (*tks_finish_fn)(void* context);
/// Something has failed.
typedef void (*tks_error_fn)(void* context, const tks_error* error);
/// A launcher was started.
typedef void (*tks_pid_fn)(void* context, int32_t pid);
/// A line for the log: complete, without line end, prefix or time stamp, personal data masked but in two kinds of line
/// (docs/hosts.md). `level` is one of TKS_LOG_...; may be called on several threads at once.
typedef void (*tks_log_fn)(void* context, int32_t level, const char* line);
/// An installation has come so far: `step` is one of TKS_INSTALL_..., of `number_of_steps`; bytes are 0 of 0 for steps
/// that are not counted in bytes. Main thread.
typedef void (*tks_install_progress_fn)(void* context, int32_t step, int32_t number_of_steps, uint64_t bytes_done,
                                        uint64_t bytes_total);
/// Nothing calls back with this context any more.
typedef void (*tks_release_fn)(void* context);

// The log.

/// The levels of log lines.
enum tks_log_level {
  TKS_LOG_TRACE = 1,    ///< entry to an operation
  TKS_LOG_INFO = 2,     ///< normal progress
  TKS_LOG_WARNING = 4,  ///< recoverable failures
  TKS_LOG_ERROR = 8     ///< failures that end an operation
};

/// Installs the log callback in place of the one before; a null callback drops all further lines, and `context` is
/// released at once. Any thread.
TKS_C_EXPORT void tks_set_log(tks_log_fn log, void* context, tks_release_fn release);
/// Hands a line of the host's own to the log callback. Nothing is masked in it. Any thread.
TKS_C_EXPORT void tks_log(int32_t level, const char* line);
/// The text with personal data masked; null for a null pointer, or without memory. Any thread.
TKS_C_EXPORT char* tks_mask(const char* text);
/// The text masked but for its first three bytes; null for a null pointer, or without memory. Any thread.
TKS_C_EXPORT char* tks_add_mask(const char* text);

// Setting up. Any thread; elsewhere than on the main thread it is done there later, before what is called later.

/// The launcher's bundle; without a call it is the one at the standard path. Null and empty leave the executable as it
/// was.
TKS_C_EXPORT void tks_set_launcher(const char* path);
/// The launcher's bundle as it is set. Main thread; elsewhere null, with a log line of level 8.
TKS_C_EXPORT char* tks_launcher(void);
/// A zip archive with a launcher and the version of that launcher: each start installs it when it is newer than the
/// launcher that is there. Null stands for none.
TKS_C_EXPORT void tks_set_backup_archive(const char* path, const char* version);
/// Stored for the host; the library does not use it.
TKS_C_EXPORT void tks_set_backup_launcher(const char* path);
/// Sets the options of this process, in place of all that were set before: a JSON object of options by their names, as
/// TKSOptions.h lists them, for example {"helloLimit": 30000, "httpsOnly": true}; null and {} set none. False, with the
/// reason in `failed`, which may be null, for an unknown name, a value of another kind or out of its range, and after
/// the first start, launch, installation or list of updates. Nothing has changed then.
TKS_C_EXPORT bool tks_set_options(const char* json, tks_error_fn failed, void* context);
/// Called with the process identifier of each launcher that is started. Replaces the one before.
TKS_C_EXPORT void tks_set_pid_callback(tks_pid_fn started, void* context, tks_release_fn release);

// Launching. Any thread, as above. One of the two callbacks is called, once, and then the context is released; for the
// host that uses files a stop may release the contexts of others uncalled. On the main thread a refusal comes before
// the function returns. Without an error callback the release after a failure may wait for the next launch.

/// Starts the launcher and greets it, or tests the connection that there is.
TKS_C_EXPORT void tks_start(tks_finish_fn finished, tks_error_fn failed, void* context, tks_release_fn release);
/// Says goodbye to the launcher. A launch that is under way gets an error.
TKS_C_EXPORT void tks_stop(tks_finish_fn finished, tks_error_fn failed, void* context, tks_release_fn release);
/// Launches a meeting; starts the launcher first if need be. `parameters` is a JSON object; null stands for missing
/// ones, which the error callback hears of. Anything else is refused: nothing is launched.
TKS_C_EXPORT void tks_launch(const char* parameters, tks_finish_fn finished, tks_error_fn failed, void* context,
                             tks_release_fn release);
/// The same without looking first whether a launch is under way.
TKS_C_EXPORT void tks_launch_directly(const char* parameters, tks_finish_fn finished, tks_error_fn failed,
                                      void* context, tks_release_fn release);
/// Waits, off the main thread, until the connected launcher has quit (about 5 s), then launches.
TKS_C_EXPORT void tks_launch_after_update(const char* parameters, tks_finish_fn finished, tks_error_fn failed,
                                          void* context, tks_release_fn release);
/// Ends a conversation over files at once, for the host that uses them.
TKS_C_EXPORT void tks_clean_up_file_channel(void);

/// The launcher as this process knows it.
enum tks_launcher_status {
  TKS_STATUS_UNCONNECTED = 1,  ///< no launcher connected; initial value
  TKS_STATUS_STARTING = 2,     ///< the launcher is being started and greeted
  TKS_STATUS_CONNECTED = 3,    ///< the greeting was answered; the launcher waits
  TKS_STATUS_LAUNCHING = 4     ///< the launcher works on a launch request
};

/// One of TKS_STATUS_.... Any thread.
TKS_C_EXPORT int32_t tks_status(void);
/// Process identifier of the connected launcher; 0 when none. Any thread.
TKS_C_EXPORT int32_t tks_connected_pid(void);
/// A JSON object, site domain to time of the last launch; null when none is recorded. Main thread; elsewhere null, with
/// a log line of level 8.
TKS_C_EXPORT char* tks_recorded_sites(void);

// Trust, installing, updates. Any thread; each waits until it is done. `failed`, if given, is called with the reason
// before the function returns.

/// Whether the bundle or file at `path` carries an intact signature of the maker.
TKS_C_EXPORT bool tks_check_trust(const char* path, tks_error_fn failed, void* context);
/// Whether the maker signed the bundle at `path`, which is what is asked before a launcher is started.
TKS_C_EXPORT bool tks_check_trust_for_launch(const char* path, tks_error_fn failed, void* context);
/// Replaces the bundle at `target` by the launcher in a zip archive, when that is signed by the maker, supported and of
/// the given version; whether the target is then in place and healthy. A null target is the standard path. Takes
/// seconds; the reason of a failure stands in the log.
TKS_C_EXPORT bool tks_install(const char* version, const char* archive, const char* target);

/// The steps of an installation, in their order.
enum tks_install_step {
  TKS_INSTALL_EXAMINING = 1,  ///< the archive is copied to a private folder and looked into
  TKS_INSTALL_UNPACKING = 2,  ///< the launcher is unpacked
  TKS_INSTALL_CHECKING = 3,   ///< its signature and version are checked
  TKS_INSTALL_ENDING = 4,     ///< running launchers are ended
  TKS_INSTALL_REPLACING = 5,  ///< it takes the place of the old one
  TKS_INSTALL_ASSESSING = 6   ///< the launcher in its place is assessed
};

/// Installs the callback that is told of the steps of every installation in this process, in place of the one before;
/// a null callback ends the telling, and `context` is released at once.
TKS_C_EXPORT void tks_set_install_progress(tks_install_progress_fn progress, void* context, tks_release_fn release);
/// The delta packages that a server offers: a JSON object, version to "version", "hash", "size" and "path". Null when
/// there is none, and when it failed. Waits for the server, up to 5 s between two bytes.
TKS_C_EXPORT char* tks_delta_updates(const char* base_url, tks_error_fn failed, void* context);

// The main loop. A host without a loop of its own calls tks_main_loop_run; one with a loop watches the descriptor for
// readability and drains. On macOS the main queue is the system's.

/// Works until tks_main_loop_stop.
TKS_C_EXPORT void tks_main_loop_run(void);
/// Makes tks_main_loop_run return, or return at once the next time. Any thread.
TKS_C_EXPORT void tks_main_loop_stop(void);
/// Readable as long as there is work. Never close or read it. -1 on macOS. Any thread.
TKS_C_EXPORT int tks_main_loop_descriptor(void);
/// Does all work that is due and returns; never waits.
TKS_C_EXPORT void tks_main_loop_drain(void);

// Standard input and output, which a launcher that is connected over pipes takes over.

/// A private descriptor of the process's own standard input; -1 when there was none. Never close it. Any thread.
TKS_C_EXPORT int tks_original_input(void);
/// The same for the standard output.
TKS_C_EXPORT int tks_original_output(void);

#ifdef __cplusplus
}
#endif
