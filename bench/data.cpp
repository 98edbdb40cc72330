#include "data.h"

#include <QDateTime>
#include <QLocale>
#include <QStringList>

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

namespace {

constexpr unsigned kSeed = 20260101;

const QStringList &words()
{
    static const QStringList list =
        QStringLiteral("Написать проверить согласовать обновить собрать отчёт статью договор макет страницу "
                       "каталог обзор \\\"Велосипеды\\\" "
                       "кофемашин новостей раздел поставщиков квартал № 17 2026 карточки товаров "
                       "фото\\/видео к понедельнику "
                       "C++ API — срочно")
            .split(QLatin1Char(' '));
    return list;
}

class Maker
{
public:
    int number(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }

    QString title()
    {
        QStringList parts;
        for (int i = 3 + number(6); i > 0; --i)
            parts.append(words().at(number(words().size())));
        return parts.join(QLatin1Char(' '));
    }

    QString moment()
    {
        return QLocale::c().toString(
            QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC).addSecs(number(365 * 86400)),
            QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    }

private:
    std::mt19937 m_random{kSeed};
};

} // namespace

QByteArray listBody(const ListShape &shape)
{
    Maker maker;
    QString body = QStringLiteral("[");
    int id = shape.firstId - 1;
    for (int team = 0; team < shape.teams; ++team) {
        if (team > 0)
            body += QLatin1Char(',');
        body += QStringLiteral("{\"id\":\"%1\",\"name\":\"Команда %1\",\"tasks\":[").arg(10000 + team);
        if (shape.isShared)
            id = shape.firstId - 1;
        bool isFirst = true;
        for (int i = 0; i < shape.tasksPerTeam; ++i) {
            ++id;
            const QString title = maker.title();
            QString deadline = maker.number(3) > 0 ? maker.moment() : QString();
            const QString comment = maker.moment();
            if (shape.changeEvery > 0 && id % shape.changeEvery == 0)
                deadline = QStringLiteral("2030-01-01 00:00:00");
            const QString importance = QString::number(maker.number(3));
            if (shape.goneEvery > 0 && id % shape.goneEvery == 0)
                continue;
            if (!std::exchange(isFirst, false))
                body += QLatin1Char(',');
            body += QStringLiteral("{\"id\":\"%1\",\"title\":\"%2\",\"deadline\":\"%3\",\"block\":\"0\","
                                   "\"last_comment\":\"%4\",\"importance\":%5}")
                        .arg(QString::number(id), title, deadline, comment, importance);
        }
        body += QStringLiteral("]}");
    }
    return (body + QLatin1Char(']')).toUtf8();
}

QByteArray listBodyOfSize(int bytes)
{
    constexpr int sample = 50;
    const int perTask = listBody({1, sample}).size() / sample;
    return listBody({bytes / perTask / sample, sample});
}

QByteArray taskInfoBody(int id)
{
    return QStringLiteral("{\"id\":\"%1\",\"title\":\"Задача %1\",\"text\":\"Описание\","
                          "\"executor_name\":\"Анна\",\"files\":[],\"texts\":[]}")
        .arg(id)
        .toUtf8();
}

ReadyReply::ReadyReply(int stage, const QByteArray &body, QObject *parent)
    : QNetworkReply(parent)
    , m_body(body)
{
    setProperty("stage", stage);
    setError(NoError, QString());
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    setFinished(true);
}

qint64 ReadyReply::readData(char *data, qint64 maxSize)
{
    const qint64 count = std::min<qint64>(maxSize, m_body.size() - m_read);
    std::memcpy(data, m_body.constData() + m_read, static_cast<size_t>(count));
    m_read += count;
    return count;
}
