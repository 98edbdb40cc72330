#include "base/notificationtype.h"

#include <QString>

QString notificationMessage(const QString &text, NotificationType type)
{
    switch (type) {
    case TeamAdded:
        return QStringLiteral("Добавлена новая команда \"") + text + QLatin1Char('"');
    case TeamLeft:
        return QStringLiteral("Вы больше не являетесь членом команды \"") + text + QLatin1Char('"');
    case TaskAdded:
        return QStringLiteral("Добавлена новая задача \"") + text + QLatin1Char('"');
    case TaskGone:
        return QStringLiteral("Задача \"") + text + QStringLiteral("\" более недоступна");
    case CommentAdded:
        return QStringLiteral("К задаче \"") + text + QStringLiteral("\" добавлен новый комментарий");
    case UpdateAvailable:
        return QStringLiteral("Доступно новое обновление Orvana Team") + text;
    case DeadlineChanged:
        return QStringLiteral("Дедлайн задачи \"") + text + QStringLiteral("\" был изменён");
    case TaskBlocked:
        return QStringLiteral("Задача \"") + text + QStringLiteral("\" помечена как блокирующая");
    case TaskUnblocked:
        return QStringLiteral("Задача \"") + text + QStringLiteral("\" более не является блокирующей");
    case BlockingTaskAdded:
        return QStringLiteral("Добавлена новая блокируюшая задача \"") + text + QLatin1Char('"');
    case Plain:
        break;
    }
    return text;
}

bool staysUntilClicked(NotificationType type)
{
    return type == TeamAdded || type == UpdateAvailable || opensTask(type);
}

bool opensTask(NotificationType type)
{
    switch (type) {
    case TaskAdded:
    case CommentAdded:
    case TaskBlocked:
    case TaskUnblocked:
    case BlockingTaskAdded:
        return true;
    default:
        return false;
    }
}
