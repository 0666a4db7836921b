#pragma once

/// Works until `stopApplication`, on the main thread. On macOS as a background application: the system lists, and a
/// host finds, only what has checked in as an application, and asks it to quit by an event. Elsewhere the library's
/// main loop is all there is to run.
void runApplication();

/// Makes `runApplication` return. Any thread.
void stopApplication();
