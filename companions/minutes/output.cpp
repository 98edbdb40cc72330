#include "minutes/output.h"

#include "base/printable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace minutes {

namespace {

const QString kGap = QStringLiteral("  ");

QString isoDay(const QDate &day)
{
    return day.toString(Qt::ISODate);
}

QString named(const QString &id, const QString &name)
{
    return name.isEmpty()
        ? printable(id)
        : QString(printable(id) + QStringLiteral(" «") + printable(name) + QStringLiteral("»"));
}

// Numbers have columns, texts come last: how wide a terminal draws them does not matter then.
struct Row
{
    QString day;
    Sum sum;
    QString corrected;
    QString text;
};

QString lineOf(const QStringList &cells, const QString &text, const QVector<int> &widths)
{
    QString line;
    for (int i = 0; i < cells.size(); ++i)
        line += (i == 0 ? cells.at(i).leftJustified(widths.at(i)) : cells.at(i).rightJustified(widths.at(i)))
            + kGap;
    return (text.isEmpty() ? line.trimmed() : QString(line + text)) + QLatin1Char('\n');
}

QString rowsText(const QVector<Row> &rows)
{
    const QStringList heads{QStringLiteral("День"),     QStringLiteral("Засчитано"),
                            QStringLiteral("Активных"), QStringLiteral("Срезов"),
                            QStringLiteral("Принято"),  QStringLiteral("Ждут"),
                            QStringLiteral("Поправка")};
    QVector<QStringList> table;
    for (const Row &row : rows) {
        QStringList cells{row.day};
        for (const int number :
             {row.sum.counted, row.sum.active, row.sum.slices, row.sum.accepted, row.sum.waiting})
            cells.append(QString::number(number));
        table.append(cells << row.corrected);
    }
    QVector<int> widths;
    for (int i = 0; i < heads.size(); ++i) {
        int width = heads.at(i).size();
        for (const QStringList &cells : qAsConst(table))
            width = qMax(width, cells.at(i).size());
        widths.append(width);
    }
    QString text = lineOf(heads, QStringLiteral("Задача"), widths);
    for (int i = 0; i < rows.size(); ++i)
        text += lineOf(table.at(i), rows.at(i).text, widths);
    return text;
}

QString signedText(int minutes)
{
    return minutes > 0 ? QLatin1Char('+') + QString::number(minutes) : QString::number(minutes);
}

// The tasks of each day, with what the service corrected on the day's own line.
QVector<Row> rowsOf(const Report &report, const Names &names)
{
    QMap<QDate, QVector<Row>> days;
    Sum all;
    for (const Sum &sum : report.sums) {
        const QString team = QStringLiteral(", команда ") + named(sum.teamId, names.team(sum.teamId));
        days[sum.day].append(
            {isoDay(sum.day), sum, QString(), named(sum.taskId, names.task(sum.teamId, sum.taskId)) + team});
        all.add(sum);
    }
    int corrected = 0;
    for (auto each = report.corrections.cbegin(); each != report.corrections.cend(); ++each) {
        days[each.key()].append(
            {isoDay(each.key()), Sum(), signedText(each->work),
             QStringLiteral("время за день исправил сервис, активное: ") + signedText(each->active)});
        corrected += each->work;
    }
    QVector<Row> rows;
    for (const QVector<Row> &day : qAsConst(days))
        rows += day;
    rows.append(
        {QStringLiteral("Всего"), all, corrected == 0 ? QString() : signedText(corrected), QString()});
    return rows;
}

// A field that no spreadsheet takes for a formula, and no reader for two.
QString csvField(const QString &raw)
{
    static const QString formulas = QStringLiteral("=+-@\uFF1D\uFF0B\uFF0D\uFF20");
    QString text = printable(raw);
    if (const QString trimmed = text.trimmed(); !trimmed.isEmpty() && formulas.contains(trimmed.front()))
        text.prepend(QLatin1Char('\''));
    return QLatin1Char('"') + text.replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

QString csvLine(const QDate &day, const QStringList &texts, const Sum &sum, const Correction &corrected)
{
    QStringList fields{isoDay(day)};
    for (const QString &text : texts)
        fields.append(csvField(text));
    for (const int number : {sum.counted, sum.active, sum.slices, sum.accepted, sum.waiting, sum.missing,
                             corrected.work, corrected.active})
        fields.append(QString::number(number));
    return fields.join(QLatin1Char(',')) + QLatin1Char('\n');
}

QJsonObject jsonOf(const Sum &sum)
{
    return {{QStringLiteral("counted"), sum.counted}, {QStringLiteral("active"), sum.active},
            {QStringLiteral("slices"), sum.slices},   {QStringLiteral("accepted"), sum.accepted},
            {QStringLiteral("waiting"), sum.waiting}, {QStringLiteral("missing"), sum.missing}};
}

QString fateName(Minute::Fate fate)
{
    return fate == Minute::Fate::Accepted ? QStringLiteral("accepted")
        : fate == Minute::Fate::Waiting   ? QStringLiteral("waiting")
                                          : QStringLiteral("missing");
}

QJsonArray tasksJson(const Report &report, const Names &names)
{
    QJsonArray tasks;
    for (const Sum &sum : report.sums) {
        QJsonObject task = jsonOf(sum);
        task.insert(QStringLiteral("day"), isoDay(sum.day));
        task.insert(QStringLiteral("team_id"), sum.teamId);
        task.insert(QStringLiteral("team"), names.team(sum.teamId));
        task.insert(QStringLiteral("task_id"), sum.taskId);
        task.insert(QStringLiteral("task"), names.task(sum.teamId, sum.taskId));
        tasks.append(task);
    }
    return tasks;
}

} // namespace

QString textOf(const Breach &breach)
{
    if (breach.file.isEmpty())
        return QStringLiteral("Цепочка журнала цела.");
    QString text = QStringLiteral("Цепочка журнала нарушена: файл ") + breach.file;
    if (breach.line > 0)
        text += QStringLiteral(", строка %1").arg(breach.line);
    if (breach.number > 0)
        text += QStringLiteral(" (n=%1)").arg(breach.number);
    return text + QStringLiteral(": ") + breach.problem + QLatin1Char('.');
}

QByteArray asTable(const Report &report, const Names &names)
{
    QString text = QStringLiteral("Минуты пользователя ") + printable(report.login) + QStringLiteral(", ")
        + isoDay(report.period.from);
    if (report.period.to != report.period.from)
        text += QStringLiteral(" – ") + isoDay(report.period.to);
    text += QStringLiteral("\n\n") + rowsText(rowsOf(report, names))
        + (report.notes.isEmpty() ? QStringLiteral("\nПерерывов и расхождений нет.\n")
                                  : QStringLiteral("\nПерерывы и расхождения:\n"));
    for (const Note &note : report.notes)
        text += momentsOf(note) + QStringLiteral(": ") + textOf(note) + QLatin1Char('\n');
    if (report.breach)
        text += QLatin1Char('\n') + textOf(*report.breach) + QLatin1Char('\n');
    return text.toUtf8();
}

QByteArray asCsv(const Report &report, const Names &names)
{
    QString text =
        QStringLiteral("day,team_id,team,task_id,task,counted,active,slices,accepted,waiting,missing,"
                       "corrected,corrected_active\n");
    for (const Sum &sum : report.sums)
        text += csvLine(sum.day,
                        {sum.teamId, names.team(sum.teamId), sum.taskId, names.task(sum.teamId, sum.taskId)},
                        sum, {});
    for (auto each = report.corrections.cbegin(); each != report.corrections.cend(); ++each)
        text += csvLine(each.key(), {QString(), QString(), QString(), QString()}, {}, *each);
    return text.toUtf8();
}

QByteArray asJson(const Report &report, const Names &names)
{
    Sum all;
    for (const Sum &sum : report.sums)
        all.add(sum);
    QJsonObject object = jsonOf(all);
    object.insert(QStringLiteral("user"), report.login);
    object.insert(QStringLiteral("from"), isoDay(report.period.from));
    object.insert(QStringLiteral("to"), isoDay(report.period.to));
    object.insert(QStringLiteral("tasks"), tasksJson(report, names));
    QJsonArray list;
    for (const Minute &minute : report.minutes)
        list.append(QJsonObject{{QStringLiteral("at"), minute.at.toString(Qt::ISODate)},
                                {QStringLiteral("team_id"), minute.id.teamId},
                                {QStringLiteral("task_id"), minute.id.taskId},
                                {QStringLiteral("active"), minute.id.active},
                                {QStringLiteral("state"), fateName(minute.fate)}});
    object.insert(QStringLiteral("minutes"), list);
    list = {};
    for (auto each = report.corrections.cbegin(); each != report.corrections.cend(); ++each)
        list.append(QJsonObject{{QStringLiteral("day"), isoDay(each.key())},
                                {QStringLiteral("work"), each->work},
                                {QStringLiteral("active"), each->active}});
    object.insert(QStringLiteral("corrections"), list);
    list = {};
    for (const Note &note : report.notes)
        list.append(
            QJsonObject{{QStringLiteral("kind"), nameOf(note.kind)},
                        {QStringLiteral("from"), note.from.toString(Qt::ISODate)},
                        {QStringLiteral("to"),
                         note.to.isValid() ? QJsonValue(note.to.toString(Qt::ISODate)) : QJsonValue()},
                        {QStringLiteral("count"), note.count},
                        {QStringLiteral("text"), textOf(note)}});
    object.insert(QStringLiteral("notes"), list);
    if (report.breach) {
        const Breach &breach = *report.breach;
        object.insert(QStringLiteral("check"),
                      QJsonObject{{QStringLiteral("ok"), breach.file.isEmpty()},
                                  {QStringLiteral("file"), breach.file},
                                  {QStringLiteral("line"), breach.line},
                                  {QStringLiteral("n"), breach.number},
                                  {QStringLiteral("text"), textOf(breach)}});
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace minutes
