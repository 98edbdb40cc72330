#pragma once

#include <QByteArray>
#include <QSocketNotifier>
#include <QString>

#include <cstring>
#include <map>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// What a service manager does with the sockets that a program has it keep, by their names.
class DescriptorStore final
{
public:
    explicit DescriptorStore(const QByteArray &path)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.constData(), sizeof address.sun_path - 1);
        ::bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address);
    }
    ~DescriptorStore() { ::close(m_socket); }
    Q_DISABLE_COPY_MOVE(DescriptorStore)

    // All messages that have come.
    const std::map<QByteArray, int> &kept()
    {
        char text[512];
        char control[CMSG_SPACE(sizeof(int))];
        iovec part = {text, sizeof text};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        for (ssize_t size; (size = ::recvmsg(m_socket, &message, MSG_DONTWAIT)) > 0;
             message.msg_controllen = sizeof control) {
            const QByteArray received(text, int(size));
            const QByteArray name = received.mid(received.indexOf("FDNAME=") + 7);
            if (const cmsghdr *head = CMSG_FIRSTHDR(&message); head && received.startsWith("FDSTORE=1\n")) {
                int descriptor = -1;
                std::memcpy(&descriptor, CMSG_DATA(head), sizeof descriptor);
                add(name, descriptor);
            } else if (received.startsWith("FDSTOREREMOVE=1\n") && m_kept.count(name) > 0) {
                ::close(m_kept[name]);
                m_kept.erase(name);
            }
        }
        return m_kept;
    }
    // Takes the descriptor.
    void add(const QByteArray &name, int descriptor)
    {
        m_kept[name] = ::fcntl(descriptor, F_DUPFD, 100); // above those that a program gets it as
        ::close(descriptor);
    }
    // For bash: runs "$@" with what is kept.
    QString start() const
    {
        QByteArray names;
        QByteArray redirections;
        int next = 3;
        for (const auto &[name, descriptor] : m_kept) {
            names += (names.isEmpty() ? "" : ":") + name;
            redirections += ' ' + QByteArray::number(next++) + "<&" + QByteArray::number(descriptor) + ' '
                + QByteArray::number(descriptor) + "<&-";
        }
        return QString::fromLatin1("export LISTEN_PID=$$ LISTEN_FDS=" + QByteArray::number(next - 3)
                                   + " LISTEN_FDNAMES=" + names + "; exec" + redirections + "; exec \"$@\"");
    }

private:
    const int m_socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::map<QByteArray, int> m_kept;
};
