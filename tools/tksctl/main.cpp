#include "tools/tksctl/commands/table.h"
#include "tools/tksctl/frame/application.h"

// tksctl: one tool for those who support users, build launchers, run CI or debug a host.

int main(int count, char** words) { return tks::ctl::run(tks::ctl::tksctl(), count, words); }
