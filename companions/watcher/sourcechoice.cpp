#include "sourcechoice.h"

std::optional<SourceKind> chooseSource(const Session &session)
{
    const bool isWayland = session.type == QStringLiteral("wayland")
        || (session.hasCompositor && session.type != QStringLiteral("x11"));
    const struct
    {
        SourceKind kind;
        bool isOffered;
    } sources[] = {
        {SourceKind::X11, session.wanted || !isWayland},
        {SourceKind::ExtIdle, session.hasExtIdle},
        {SourceKind::KWinIdle, session.hasKWinIdle},
        {SourceKind::Mutter, session.hasMutter},
    };
    for (const auto &source : sources) {
        if (source.isOffered && (!session.wanted || session.wanted == source.kind))
            return source.kind;
    }
    return std::nullopt;
}

std::optional<SourceKind> sourceNamed(const QString &name)
{
    const struct
    {
        QString name;
        SourceKind kind;
    } sources[] = {
        {QStringLiteral("x11"), SourceKind::X11},
        {QStringLiteral("ext-idle"), SourceKind::ExtIdle},
        {QStringLiteral("kwin-idle"), SourceKind::KWinIdle},
        {QStringLiteral("mutter"), SourceKind::Mutter},
    };
    for (const auto &source : sources) {
        if (source.name == name)
            return source.kind;
    }
    return std::nullopt;
}
