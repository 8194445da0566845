#include "desk/runtime_manager/event_loop.h"

#include <QCoreApplication>
#include <QTimer>

int TAVODeskRunLoop(void (*begin)(void* data), void* data) {
  char name[] = "tavo-desk";
  char* arguments[] = {name, nullptr};
  int count = 1;
  const QCoreApplication application(count, arguments);
  if (begin) QTimer::singleShot(0, &application, [begin, data] { begin(data); });
  return QCoreApplication::exec();
}

void TAVODeskLeaveLoop(int exit_code) { QCoreApplication::exit(exit_code); }
