#pragma once

// What tests ask the system about this process and others; each system has its own way to answer.
//   std::string executableOf(int process)        the program that a process runs, without links; empty when it is gone
//   std::string targetOf(int descriptor)         the path of a descriptor of this process; "pipe:..." for a pipe
//   std::vector<int> allProcesses()
//   std::set<int> children(int process)          zombies included; of this process where none is named
//   bool isRunning(int process)                  false for a zombie
//   bool ignoresSignal(int process, int signal)
//   std::size_t threadCount(int process)         of this process where none is named
//   std::size_t descriptorCount(int process)
//   std::size_t residentBytes()                  memory that this process occupies now
#ifdef __APPLE__
#include "tests/support/apple/ProcessTable.h"
#else
#include "tests/support/linux/ProcessTable.h"
#endif
