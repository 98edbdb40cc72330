#pragma once

#include <QString>

#include <optional>

enum class SourceKind { X11, ExtIdle, KWinIdle, Mutter };

// What a session says of itself, and what is found there.
struct Session
{
    std::optional<SourceKind> wanted; // by the user
    QString type; // XDG_SESSION_TYPE
    bool hasCompositor = false; // at WAYLAND_DISPLAY
    bool hasExtIdle = false;
    bool hasKWinIdle = false;
    bool hasMutter = false;
};

// Nothing when a Wayland session has none, or not the wanted one. Such a session never gets X11 unless
// that is wanted: its X server sees the input of its own windows only, so most of the work would not
// count.
std::optional<SourceKind> chooseSource(const Session &session);

// By the names of the command line.
std::optional<SourceKind> sourceNamed(const QString &name);
