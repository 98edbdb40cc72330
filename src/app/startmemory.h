#pragma once

#include <QtGlobal>

class QObject;

// Before the application object exists: settings of the allocator.
void saveMemory();

// Once the window has been there for some seconds: gives back what only the start needed, which
// is most of the code of Qt's libraries that the process has mapped. It is read again from the
// system's cache when it is needed. The object is the timer's parent.
void giveBackAfterStart(QObject *parent);
