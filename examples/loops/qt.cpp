// A host with Qt 6. A notifier on the library's descriptor does the library's work among Qt's own events, on the thread
// of the application.
//
//   loop_qt LAUNCHER    launches a meeting through the launcher at this path

#include <tksinterface/tksinterface.h>

#include <QCoreApplication>
#include <QSocketNotifier>

#include <iostream>

int main(int count, char** arguments) {
  if (count < 2) return 2;
  QCoreApplication application(count, arguments);
  QSocketNotifier notifier(TKSMainLoop::descriptor(), QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, [] { TKSMainLoop::drain(); });

  TKSInterface& tks = TKSInterface::sharedInstance();
  tks.setTKSAppPath(arguments[1]);
  // An application that is not running yet cannot be ended: a refusal comes before this call returns.
  const auto end = [](int exitCode) {
    QMetaObject::invokeMethod(
        qApp, [exitCode] { QCoreApplication::exit(exitCode); }, Qt::QueuedConnection);
  };
  tks.launchMeetingWithParam(
      TKSDictionary{{tks_param_key_gpcsitedomain, "https://meet.tarvo.example"}},
      [&] {
        std::cerr << "The meeting was launched.\n";
        end(0);
      },
      [&](const TKSError& error) {
        std::cerr << error.localizedDescription << "\n";
        end(1);
      });
  return QCoreApplication::exec();
}
