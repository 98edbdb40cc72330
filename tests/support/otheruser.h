#pragma once

#include <sys/types.h>
#include <unistd.h>

// While it exists, this process acts as another user. Needs root.
class AsUser final
{
public:
    explicit AsUser(uid_t user)
        : m_former(geteuid())
    {
        m_changed = seteuid(user) == 0;
    }
    ~AsUser()
    {
        if (seteuid(m_former) != 0)
            _exit(1);
    }
    AsUser(const AsUser &) = delete;
    AsUser &operator=(const AsUser &) = delete;

    bool changed() const { return m_changed; }

private:
    uid_t m_former;
    bool m_changed;
};
