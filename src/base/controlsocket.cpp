#include "base/controlsocket.h"

#include <sys/socket.h>

std::optional<sockaddr_un> ControlSocket::addressOf(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return {};
    path.copy(address.sun_path, path.size());
    return address;
}

std::optional<uid_t> ControlSocket::peerUser(int socket)
{
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return {};
    return peer.uid;
}
