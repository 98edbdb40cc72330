#include "minutes/arguments.h"

namespace minutes {

namespace {

// "2026-11-22" and nothing like it.
QDate day(const QString &text)
{
    const QDate date = QDate::fromString(text, Qt::ISODate);
    return date.isValid() && date.toString(Qt::ISODate) == text ? date : QDate();
}

// Takes "--name VALUE" or "--name=VALUE" out of the words. Returns how often it was there, and
// more than once when the value is missing.
int take(QStringList &words, const QString &name, QString *value)
{
    int times = 0;
    for (int i = 0; i < words.size();) {
        if (words.at(i) == name && i + 1 < words.size()) {
            *value = words.at(i + 1);
            words.removeAt(i + 1);
        } else if (words.at(i).startsWith(name + QLatin1Char('='))) {
            *value = words.at(i).mid(name.size() + 1);
        } else {
            ++i;
            continue;
        }
        words.removeAt(i);
        ++times;
    }
    return times;
}

} // namespace

bool parse(QStringList words, const QDate &today, Arguments *arguments)
{
    QString date;
    const int users = take(words, QStringLiteral("--user"), &arguments->login);
    const int days = take(words, QStringLiteral("--day"), &date);
    const int months = take(words, QStringLiteral("--month"), &date);
    const auto flag = [&words](const char *name) { return words.removeAll(QString::fromLatin1(name)) > 0; };
    const bool isCsv = flag("--csv");
    const bool isJson = flag("--json");
    arguments->checks = flag("--check");
    arguments->form = isCsv ? Form::Csv : isJson ? Form::Json : Form::Table;
    Period &period = arguments->period;
    period.from = months > 0 ? day(date + QStringLiteral("-01")) : days > 0 ? day(date) : today;
    period.to = months > 0 ? period.from.addMonths(1).addDays(-1) : period.from;
    return words.isEmpty() && users <= 1 && days + months <= 1 && !(isCsv && isJson)
        && (users == 0 || !arguments->login.isEmpty()) && period.from.isValid();
}

} // namespace minutes
