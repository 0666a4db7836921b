#include "tests/support/fake_launcher/application.h"

namespace tks::test {

// Here a process in a bundle is a running application, and a signal asks it to quit.
void runAsApplication(bool, const std::function<void()>& work) { work(); }

}  // namespace tks::test
