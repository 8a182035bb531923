#pragma once
// Ctrl-C and SIGTERM as events of the Qt event loop: the handler only writes a byte, which
// the loop reads and turns into a call on the GUI thread, where silencing is allowed.

#include <QObject>
#include <functional>

// Installs the handlers for the process; action runs on owner's thread, once per signal.
void call_on_interrupt(QObject* owner, std::function<void()> action);
