#pragma once

#include <QtGlobal>

#include <unistd.h>

// While it exists, this process acts as another user. Needs root.
class AsUser final
{
public:
    explicit AsUser(uid_t user)
        : m_changed(seteuid(user) == 0)
    { }
    ~AsUser()
    {
        if (seteuid(m_former) != 0)
            _exit(1);
    }
    Q_DISABLE_COPY_MOVE(AsUser)

    bool changed() const { return m_changed; }

private:
    const uid_t m_former = geteuid();
    const bool m_changed;
};
