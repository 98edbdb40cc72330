#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>
#include <sys/un.h>

// What the client and orvana-control agree on. A connection is for one request and one answer, a line
// of UTF-8 each. An answer begins with the digit of its outcome and a space.
namespace ControlSocket {

// In the storage folder.
constexpr char kName[] = "control";
constexpr std::size_t kLongestRequest = 64; // bytes, as is the next
constexpr std::size_t kLongestAnswer = 64 * 1024;
constexpr char kAsJson[] = " --json"; // at the end of a request

// Also the exit codes of orvana-control.
enum Outcome { Done = 0, NotReached = 1, WrongUsage = 2, Refused = 3 };

// Nothing when the path is longer than the system takes.
std::optional<sockaddr_un> addressOf(const std::string &path);
// The user behind the other end of a connected socket.
std::optional<uid_t> peerUser(int socket);

} // namespace ControlSocket
