#include "localservice/page.h"

#include "localservice/access.h"
#include "localservice/pageactions.h"
#include "localservice/replies.h"

#include <QFile>
#include <QJsonObject>
#include <QLocale>

#include <algorithm>

namespace localservice {

namespace {

constexpr int shownRecords = 30;
constexpr int shownPictures = 6;

QString picturesPath()
{
    return QStringLiteral("/screenshots/");
}

QString controlPath()
{
    return QStringLiteral("/control/");
}

QString receivedPath()
{
    return QStringLiteral("/received");
}

QString scriptPath()
{
    return QStringLiteral("/page.js");
}

QString tokenField()
{
    return QStringLiteral("token");
}

QByteArray htmlType()
{
    return QByteArrayLiteral("text/html; charset=utf-8");
}

QString shortened(const QString &text, int length)
{
    return text.size() <= length ? text : QString(text.left(length - 1) % QStringLiteral("…"));
}

QString cell(const QString &text, const QString &kind = {})
{
    constexpr int longest = 200;
    return QStringLiteral("<td class=\"") % kind % QStringLiteral("\">")
        % shortened(text, longest).toHtmlEscaped() % QStringLiteral("</td>");
}

QString shown(const QDateTime &when)
{
    return QLocale::c().toString(when, QStringLiteral("dd.MM.yyyy HH:mm:ss"));
}

QString timeCell(const QDateTime &when)
{
    return QStringLiteral("<td class=\"time\">") % shown(when) % QStringLiteral("</td>");
}

QString hidden(const QString &name, const QString &value)
{
    return QStringLiteral("<input type=\"hidden\" name=\"") % name % QStringLiteral("\" value=\"")
        % value.toHtmlEscaped() % QStringLiteral("\">");
}

QString input(const QString &type, const QString &name, const QString &hint, const QString &value = {})
{
    return QStringLiteral("<input type=\"") % type % QStringLiteral("\" name=\"") % name
        % QStringLiteral("\" aria-label=\"") % hint % QStringLiteral("\" placeholder=\"") % hint
        % QStringLiteral("\" maxlength=\"200\" value=\"") % value.toHtmlEscaped() % QStringLiteral("\">");
}

QString checkBox(const QString &name, const QString &label)
{
    return QStringLiteral("<label><input type=\"checkbox\" name=\"") % name % QStringLiteral("\"> ") % label
        % QStringLiteral("</label>");
}

/// Writes forms that carry the token.
class Forms final
{
public:
    explicit Forms(const QByteArray &token)
        : m_token(hidden(tokenField(), QString::fromLatin1(token)))
    { }

    QString operator()(const QString &action, const QString &fields, const QString &button) const
    {
        return QStringLiteral("<form method=\"post\" action=\"") % controlPath() % action
            % QStringLiteral("\">") % m_token % fields % QStringLiteral("<button>") % button
            % QStringLiteral("</button></form>");
    }

private:
    QString m_token;
};

QString table(const QStringList &heads, const QString &rows)
{
    if (rows.isEmpty()) {
        return QStringLiteral("<p class=\"none\">Пока ничего нет.</p>");
    }
    QString head;
    for (const QString &each : heads) {
        head += QStringLiteral("<th>") % each % QStringLiteral("</th>");
    }
    return QStringLiteral("<table><thead><tr>") % head % QStringLiteral("</tr></thead><tbody>") % rows
        % QStringLiteral("</tbody></table>");
}

QString heading(const QString &text, int count)
{
    return QStringLiteral("<h3>") % text % QStringLiteral(" <small>") % QString::number(count)
        % QStringLiteral("</small></h3>");
}

// The latest first, at most so many.
template <typename List, typename Row>
QString latestRows(const List &list, Row row)
{
    QString rows;
    const int oldest = std::max(0, list.size() - shownRecords);
    for (int i = list.size() - 1; i >= oldest; --i) {
        rows += QStringLiteral("<tr>") % row(list.at(i)) % QStringLiteral("</tr>");
    }
    return rows;
}

QString titleOf(const World &world, const QString &taskId)
{
    constexpr int longest = 60;
    const Task *task = world.task(taskId);
    return shortened(task ? QString(taskId % QStringLiteral(" · ") % task->title) : taskId, longest);
}

QString userRows(const ControlState &state)
{
    const QDate today = QDate::currentDate();
    QString rows;
    for (const User &user : state.world.users) {
        const DayTotals totals = state.journal.totals(user, today);
        rows += QStringLiteral("<tr>") % cell(user.login) % cell(QString::number(totals.total))
            % cell(QString::number(totals.active)) % QStringLiteral("</tr>");
    }
    return rows;
}

// Fetched again and again by the script, hence without forms: nobody types in it.
QString receivedContent(const ControlState &state)
{
    const Journal &journal = state.journal;
    const World &world = state.world;
    const QString reports = latestRows(journal.reports(), [&world](const ActivityReport &report) {
        return QString(timeCell(report.moment()) % timeCell(report.arrived)
                       % cell(report.email, QStringLiteral("who")) % cell(report.teamId)
                       % cell(titleOf(world, report.taskId), QStringLiteral("wide"))
                       % cell(QString::number(report.active)) % cell(report.version));
    });
    const QString requests = latestRows(journal.deadlineRequests(), [&world](const DeadlineRequest &request) {
        return QString(timeCell(request.arrived) % cell(request.login, QStringLiteral("who"))
                       % cell(titleOf(world, request.taskId), QStringLiteral("task"))
                       % cell(QString(request.date % QLatin1Char(' ') % request.time), QStringLiteral("time"))
                       % cell(request.message, QStringLiteral("wide")));
    });
    QString pictures;
    const int count = journal.screenshots().size();
    for (int i = count - 1; i >= std::max(0, count - shownPictures); --i) {
        const Screenshot &shot = journal.screenshots().at(i);
        const QString address = picturesPath() % QString::number(i);
        pictures += QStringLiteral("<figure><a href=\"") % address
            % QStringLiteral("\"><img alt=\"Снимок экрана\" src=\"") % address
            % QStringLiteral("\"></a><figcaption>") % shown(shot.moment()) % QStringLiteral(" · ")
            % shot.email.toHtmlEscaped() % QStringLiteral("</figcaption></figure>");
    }
    return QStringLiteral("<h2>Получено</h2><h3>Сегодня</h3>")
        % table({QStringLiteral("Кто"), QStringLiteral("Всего, мин"), QStringLiteral("Активно, мин")},
                userRows(state))
        % heading(QStringLiteral("Отчёты"), journal.reports().size())
        % table({QStringLiteral("Минута"), QStringLiteral("Принято"), QStringLiteral("Кто"),
                 QStringLiteral("Команда"), QStringLiteral("Задача"), QStringLiteral("Активность"),
                 QStringLiteral("Версия")},
                reports)
        % heading(QStringLiteral("Снимки экрана"), count) % QStringLiteral("<div class=\"pictures\">")
        % (pictures.isEmpty() ? table({}, {}) : pictures) % QStringLiteral("</div>")
        % heading(QStringLiteral("Запросы на перенос дедлайна"), journal.deadlineRequests().size())
        % table({QStringLiteral("Принято"), QStringLiteral("Кто"), QStringLiteral("Задача"),
                 QStringLiteral("Новый срок"), QStringLiteral("Причина")},
                requests);
}

QString taskRow(const Task &task, const Forms &form)
{
    const bool blocks = !task.block.isEmpty() && task.block != QLatin1String("0");
    const QString id = hidden(QStringLiteral("task"), task.id);
    const QString deadline =
        task.deadline.isValid() ? QLocale::c().toString(task.deadline, QStringLiteral("yyyy-MM-ddTHH:mm")) : QString();
    return QStringLiteral("<tr>") % cell(task.id) % QStringLiteral("<td class=\"wide\">")
        % task.title.toHtmlEscaped()
        % (blocks ? QStringLiteral(" <b class=\"mark block\">блокирует</b>") : QString())
        % (task.importance > 0 ? QStringLiteral(" <b class=\"mark\">важная</b>") : QString())
        % QStringLiteral("</td><td class=\"action\">")
        % form(QStringLiteral("set-deadline"),
               id
                   % input(QStringLiteral("datetime-local"), QStringLiteral("deadline"),
                           QStringLiteral("Дедлайн"), deadline),
               QStringLiteral("Перенести"))
        % QStringLiteral("</td>") % timeCell(task.lastComment) % QStringLiteral("<td class=\"action\">")
        % form(QStringLiteral("add-comment"), id, QStringLiteral("Комментарий"))
        % form(QStringLiteral("set-block"),
               id % hidden(QStringLiteral("block"), blocks ? QStringLiteral("0") : QStringLiteral("1")),
               blocks ? QStringLiteral("Снять блокировку") : QStringLiteral("Заблокировать"))
        % form(QStringLiteral("remove-task"), id, QStringLiteral("Удалить")) % QStringLiteral("</td></tr>");
}

QString teamsSection(const World &world, const Forms &form)
{
    QString teams;
    for (const Team &team : world.teams) {
        QString rows;
        for (const Task &task : team.tasks) {
            rows += taskRow(task, form);
        }
        const QString id = hidden(QStringLiteral("team"), team.id);
        teams += QStringLiteral("<h3>") % team.name.toHtmlEscaped() % QStringLiteral(" <small>№ ")
            % team.id.toHtmlEscaped() % QStringLiteral("</small></h3>")
            % table({QStringLiteral("№"), QStringLiteral("Задача"), QStringLiteral("Дедлайн"),
                     QStringLiteral("Последний комментарий"), QStringLiteral("Действия")},
                    rows)
            % QStringLiteral("<div class=\"row\">")
            % form(QStringLiteral("add-task"),
                   id
                       % input(QStringLiteral("text"), QStringLiteral("title"),
                               QStringLiteral("Название новой задачи"))
                       % input(QStringLiteral("datetime-local"), QStringLiteral("deadline"),
                               QStringLiteral("Дедлайн"))
                       % checkBox(QStringLiteral("important"), QStringLiteral("важная"))
                       % checkBox(QStringLiteral("block"), QStringLiteral("блокирует")),
                   QStringLiteral("Добавить задачу"))
            % form(QStringLiteral("remove-team"), id, QStringLiteral("Удалить команду"))
            % QStringLiteral("</div>");
    }
    return QStringLiteral("<section><h2>Команды и задачи</h2>") % teams
        % QStringLiteral("<h3>Новая команда</h3><div class=\"row\">")
        % form(QStringLiteral("add-team"),
               input(QStringLiteral("text"), QStringLiteral("name"), QStringLiteral("Название"))
                   % input(QStringLiteral("text"), QStringLiteral("id"),
                           QStringLiteral("Номер (можно не указывать)")),
               QStringLiteral("Добавить команду"))
        % QStringLiteral("</div></section>");
}

QString versionSection(const World &world, const Forms &form)
{
    const auto versionAt = [&world](int index) {
        return world.versions.at(index).toObject().value(QStringLiteral("version")).toVariant().toString();
    };
    return QStringLiteral(
               "<section><h2>Обновление</h2><p>С одной записью клиент открывает страницу загрузки, "
               "с двумя запускает программу обновления.</p>")
        % form(QStringLiteral("set-versions"),
               input(QStringLiteral("text"), QStringLiteral("version"), QStringLiteral("Версия"),
                     versionAt(0))
                   % input(QStringLiteral("text"), QStringLiteral("version2"),
                           QStringLiteral("Вторая запись"), versionAt(1)),
               QStringLiteral("Предложить"))
        % QStringLiteral("</section>");
}

QString outageSection(Outage outage, const Forms &form)
{
    struct Mode
    {
        Outage outage;
        QString name;
        QString label;
    };
    const Mode modes[]{{Outage::None, QStringLiteral("none"), QStringLiteral("Работает")},
                       {Outage::Unavailable, QStringLiteral("unavailable"), QStringLiteral("Отвечает 503")},
                       {Outage::Dropped, QStringLiteral("dropped"), QStringLiteral("Обрывает соединения")}};
    QString forms;
    for (const Mode &mode : modes) {
        forms += mode.outage == outage
            ? QString(QStringLiteral("<b class=\"mark\">") % mode.label % QStringLiteral("</b>"))
            : form(QStringLiteral("set-outage"), hidden(QStringLiteral("mode"), mode.name), mode.label);
    }
    return QStringLiteral("<section><h2>Состояние сервиса</h2><div class=\"row\">") % forms
        % QStringLiteral("</div></section>");
}

Reply controlPage(const ControlState &state)
{
    const QString title = QStringLiteral("Сервис задач");
    const Forms form(state.token);
    const QString content =
        QStringLiteral("<header><h1>") % title
        % QStringLiteral(
            "</h1><a href=\"/\">Обновить</a></header><p>Изменения действуют до перезапуска; исходные данные "
            "лежат в файле seed.json.</p>")
        % outageSection(state.outage, form) % QStringLiteral("<section id=\"received\">")
        % receivedContent(state) % QStringLiteral("</section>") % teamsSection(state.world, form)
        % versionSection(state.world, form) % QStringLiteral("<script src=\"") % scriptPath()
        % QStringLiteral("\"></script>");
    return {200, htmlDocument(title, content), htmlType()};
}

Reply pictureReply(const QString &number, const Journal &journal)
{
    constexpr int notFound = 404;
    bool isNumber = false;
    const int index = number.toInt(&isNumber);
    if (!isNumber || index < 0 || index >= journal.screenshots().size()) {
        return messagePage(notFound, QStringLiteral("Снимок не найден"));
    }
    const Screenshot &shot = journal.screenshots().at(index);
    QByteArray jpeg = shot.jpeg;
    QFile file(shot.path);
    if (!shot.path.isEmpty() && file.open(QIODevice::ReadOnly)) {
        jpeg = file.readAll();
    }
    return jpeg.isEmpty() ? messagePage(notFound, QStringLiteral("Клиент не прислал снимок"))
                          : Reply{200, jpeg, QByteArrayLiteral("image/jpeg")};
}

Reply changeReply(const RecordedRequest &request, const ControlState &state)
{
    constexpr int badRequest = 400;
    constexpr int forbidden = 403;
    constexpr int seeOther = 303;
    if (!isToken(valueOf(request.formPairs, tokenField()).toUtf8(), state.token)) {
        return messagePage(forbidden, QStringLiteral("Страница устарела, откройте её заново"));
    }
    const QString problem = applyControl(request.path.mid(controlPath().size()), request.formPairs, state);
    if (!problem.isEmpty()) {
        return messagePage(badRequest, problem);
    }
    Reply reply{seeOther, {}, QByteArrayLiteral("text/plain")};
    reply.location = QByteArrayLiteral("/");
    return reply;
}

} // namespace

bool isControlPath(const QString &path)
{
    return path == QLatin1String("/") || path == receivedPath() || path == scriptPath()
        || path.startsWith(controlPath()) || path.startsWith(picturesPath());
}

Reply answerControl(const RecordedRequest &request, const ControlState &state)
{
    constexpr int wrongMethod = 405;
    const bool changes = request.path.startsWith(controlPath());
    const bool isRightMethod =
        changes ? request.method == "POST" : request.method == "GET" || request.method == "HEAD";
    if (!isRightMethod) {
        return messagePage(wrongMethod, QStringLiteral("Так к этой странице не обращаются"));
    }
    if (changes) {
        return changeReply(request, state);
    }
    if (request.path.startsWith(picturesPath())) {
        return pictureReply(request.path.mid(picturesPath().size()), state.journal);
    }
    if (request.path == receivedPath()) {
        return {200, receivedContent(state).toUtf8(), htmlType()};
    }
    if (request.path == scriptPath()) {
        return {200, resource(QStringLiteral("page.js")),
                QByteArrayLiteral("text/javascript; charset=utf-8")};
    }
    return controlPage(state);
}

} // namespace localservice
