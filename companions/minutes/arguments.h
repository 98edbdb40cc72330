#pragma once

#include <QDate>
#include <QString>
#include <QStringList>

namespace minutes {

// Both ends are included.
struct Period
{
    QDate from;
    QDate to;

    bool contains(const QDate &day) const { return from <= day && day <= to; }
};

enum class Form { Table, Csv, Json };

struct Arguments
{
    QString login; // empty: whoever signed in last
    Period period;
    Form form = Form::Table;
    bool checks = false;
};

// False when they make no sense.
bool parse(QStringList words, const QDate &today, Arguments *arguments);

} // namespace minutes
