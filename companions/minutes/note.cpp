#include "minutes/note.h"

#include "base/printable.h"

#include <QLocale>

namespace minutes {

namespace {

struct Wording
{
    Note::Kind kind;
    const char *name;
    const char *text; // %1 is the detail
};

constexpr Wording kWordings[] = {
    {Note::Kind::Killed, "killed", "программа завершилась аварийно%1"},
    {Note::Kind::Closed, "closed", "программа закрыта%1"},
    {Note::Kind::SignedOut, "signed_out", "пользователь вышел: в программу вошёл другой%1"},
    {Note::Kind::Stopped, "stopped", "таймер остановлен%1"},
    {Note::Kind::Slept, "slept", "компьютер спал"},
    {Note::Kind::ClockSet, "clock_set", "переведены часы: %1"},
    {Note::Kind::Stalled, "stalled", "минута длилась дольше обычного: программа или компьютер не отвечали"},
    {Note::Kind::Silent, "silent",
     "таймер работал, но записей больше нет: программа завершилась аварийно или не отвечает"},
    {Note::Kind::Midnight, "midnight", "полночь при запущенном таймере: дальше считается новый день"},
    {Note::Kind::Corrected, "corrected", "сервис исправил время за день: %1"},
    {Note::Kind::Counters, "counters", "счётчики приведены в согласие с журналом: %1"},
    {Note::Kind::Refused, "refused", "сервис не принял отчёт, ответ: «%1»"},
    {Note::Kind::ScreenshotRefused, "screenshot_refused", "сервис не принял снимок экрана, ответ: «%1»"},
    {Note::Kind::Restored, "restored", "отчёт о минуте восстановлен по журналу"},
    {Note::Kind::AcceptedTwice, "accepted_twice", "минута принята сервисом повторно"},
    {Note::Kind::NotInJournal, "not_in_journal", "минуты нет в журнале, но её отчёт %1"},
    {Note::Kind::Missing, "missing", "отчёт о минуте не принят и не ждёт отправки на диске"},
    {Note::Kind::Gap, "gap", "в журнале не хватает строк: %1"},
    {Note::Kind::Torn, "torn", "запись журнала оборвалась, байт: %1"},
    {Note::Kind::Damaged, "damaged", "строки журнала повреждены и не учтены: %1"},
    {Note::Kind::OtherLogin, "other_login", "минуты другого пользователя (%1) не учтены"},
};

const Wording &wordingOf(Note::Kind kind)
{
    const Wording *wording = kWordings;
    while (wording->kind != kind)
        ++wording;
    return *wording;
}

QString moment(const QDateTime &time, const char *format)
{
    return QLocale::c().toString(time, QString::fromLatin1(format));
}

} // namespace

QString nameOf(Note::Kind kind)
{
    return QString::fromLatin1(wordingOf(kind).name);
}

QString textOf(const Note &note)
{
    QString text = QString::fromUtf8(wordingOf(note.kind).text);
    text.replace(QLatin1String("%1"), printable(note.detail));
    return note.count > 1 ? text + QStringLiteral(" (всего: %1)").arg(note.count) : text;
}

QString momentsOf(const Note &note)
{
    constexpr char kFull[] = "yyyy-MM-dd hh:mm:ss";
    const QString from = moment(note.from, kFull);
    if (!note.to.isValid())
        return QStringLiteral("с ") + from;
    const QString to = moment(note.to, note.from.date() == note.to.date() ? "hh:mm:ss" : kFull);
    return note.from == note.to ? from : from + QStringLiteral(" – ") + to;
}

void add(QVector<Note> &notes, const Note &note)
{
    const bool isInstant = note.kind >= Note::Kind::Refused;
    if (isInstant && !notes.isEmpty() && notes.last().kind == note.kind
        && notes.last().detail == note.detail) {
        notes.last().to = note.to;
        notes.last().count += note.count;
    } else {
        notes.append(note);
    }
}

} // namespace minutes
