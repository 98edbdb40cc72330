#pragma once

#include "model/records.h"

#include <QStringList>

class QListWidget;

// The rows of a task's files and required phrases. Every row is there at once;
// its widget follows when the event loop is idle, but for the first rows.

// One size a file, in words.
void showAttachmentRows(QListWidget *list, const QList<Attachment> &files, const QStringList &sizes);
void showPhraseRows(QListWidget *list, const QList<Keyword> &phrases);
