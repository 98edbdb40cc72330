#pragma once

#include <QtGlobal>

#include <array>

#include <sys/types.h>

class QString;
class QStringList;

// Sets what only the client's own process is to have: a umask that keeps its files
// private, signals it ignores, and variables that Qt reads later. To be called before
// the application object exists.
void setOwnSurroundings();

// While one exists, a program that is started gets the umask, signals and variables that
// the user gave the client, and the null device instead of the client's standard
// streams, which may end with it. The client's own output is lost meanwhile: let it
// exist for the moment of the start only.
class UserSurroundings final
{
public:
    UserSurroundings();
    ~UserSurroundings();
    Q_DISABLE_COPY_MOVE(UserSurroundings)

private:
    mode_t m_umask;
    std::array<int, 3> m_streams; // copies, -1 for those that stay
};

// Starts a program, looked up in PATH, that outlives the client and its terminal.
// False when it could not be started.
bool startProgram(const QString &name, const QStringList &arguments);
