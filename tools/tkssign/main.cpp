#include "tools/tksctl/commands/sign.h"
#include "tools/tksctl/frame/application.h"

// tkssign: "tksctl sign" under a short name.

int main(int count, char** words) {
  const tks::ctl::Application application{.name = "tkssign",
                                          .summary = "signs bundles and files as their launcher's checks want it",
                                          .description = {},
                                          .commands = {tks::ctl::signCommand()},
                                          .isSingle = true};
  return tks::ctl::run(application, count, words);
}
