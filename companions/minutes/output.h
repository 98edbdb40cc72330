#pragma once

#include "minutes/account.h"
#include "minutes/chaincheck.h"
#include "minutes/names.h"

#include <optional>

namespace minutes {

struct Report
{
    QString login;
    Period period;
    QVector<Minute> minutes;
    QVector<Sum> sums;
    QMap<QDate, Correction> corrections;
    QVector<Note> notes; // by moment
    std::optional<Breach> breach; // only when the chain was followed; without a file when it is whole
};

// Each of these ends with a line break and is UTF-8 whatever the locale is.
QByteArray asTable(const Report &report, const Names &names);
QByteArray asCsv(const Report &report, const Names &names);
QByteArray asJson(const Report &report, const Names &names);
// What following the chain has shown, in Russian.
QString textOf(const Breach &breach);

} // namespace minutes
