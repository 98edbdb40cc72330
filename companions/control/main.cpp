#include "base/controlsocket.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

using namespace ControlSocket;

namespace {

constexpr timeval kPatience = {10, 0}; // for a client whose disk is slow
const std::string kOthers = "программу Orvana запустил другой пользователь (";
constexpr char kHelp[] = "Использование: orvana-control start|stop|toggle|status [--json]\n"
                         "Управляет таймером запущенной программы Orvana того же пользователя.\n"
                         "\n"
                         "  start      запустить таймер для выбранной задачи\n"
                         "  stop       остановить таймер\n"
                         "  toggle     запустить остановленный, остановить запущенный\n"
                         "  status     показать, запущен ли таймер, задачу и время за сегодня\n"
                         "  --json     ответить одной строкой JSON\n"
                         "  --help     показать эту справку и выйти\n"
                         "  --version  показать версию и выйти\n"
                         "\n"
                         "Код завершения: 0 — выполнено; 1 — программа не запущена или не отвечает;\n"
                         "2 — неверные аргументы; 3 — отказано, например не выбрана задача.\n";

int fail(const std::string &text, Outcome outcome = NotReached)
{
    std::fprintf(stderr, "orvana-control: %s\n", text.c_str());
    return outcome;
}

std::string socketPath()
{
    const char *set = std::getenv("ORVANA_STORAGE_ROOT");
    std::string path = set && *set ? set : ORVANA_BUILT_IN_STORAGE_ROOT;
    return path + "/.orvana/" + kName;
}

// Returns what prevents it. An interrupted call is not repeated: no signal is handled here.
std::string connectTo(int socket, const std::string &path)
{
    const auto address = addressOf(path);
    if (!address)
        return "путь длиннее, чем допускает система: " + path;
    // The same limit holds for waiting until the client takes the connection.
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO})
        setsockopt(socket, SOL_SOCKET, option, &kPatience, sizeof kPatience);
    if (connect(socket, reinterpret_cast<const sockaddr *>(&*address), sizeof *address) != 0) {
        if (errno == ENOENT || errno == ECONNREFUSED)
            return "программа Orvana не запущена (" + path + ")";
        if (errno == EACCES)
            return kOthers + path + ")";
        if (errno == EAGAIN)
            return "программа Orvana не отвечает";
        return path + ": " + std::strerror(errno);
    }
    return peerUser(socket) == geteuid() ? "" : kOthers + path + ")";
}

// Complete with the end of its line, or empty.
std::string ask(int socket, const std::string &request)
{
    std::string answer;
    if (send(socket, request.data(), request.size(), MSG_NOSIGNAL) != ssize_t(request.size()))
        return answer;
    char part[4096];
    while (answer.size() < kLongestAnswer) {
        const ssize_t size = recv(socket, part, sizeof part, 0);
        if (size <= 0)
            return {};
        answer.append(part, size_t(size));
        if (answer.back() == '\n')
            return answer;
    }
    return {};
}

// "start --json" and the like.
std::string requestOf(std::vector<std::string> words)
{
    std::string ending;
    const auto json = std::find(words.begin(), words.end(), kAsJson + 1);
    if (json != words.end()) {
        ending = kAsJson;
        words.erase(json);
    }
    const std::vector<std::string> known = {"start", "stop", "toggle", "status"};
    if (words.size() != 1 || std::find(known.begin(), known.end(), words.front()) == known.end())
        return {};
    return words.front() + ending + '\n';
}

} // namespace

int main(int argc, char *argv[])
{
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (words == std::vector<std::string>{"--help"})
        return std::fputs(kHelp, stdout) < 0 ? NotReached : Done;
    if (words == std::vector<std::string>{"--version"})
        return std::puts("orvana-control " ORVANA_VERSION) < 0 ? NotReached : Done;
    const std::string request = requestOf(words);
    if (request.empty())
        return fail("неверные аргументы; справка: orvana-control --help", WrongUsage);

    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return fail(std::strerror(errno));
    if (const std::string problem = connectTo(socket, socketPath()); !problem.empty())
        return fail(problem);
    const std::string answer = ask(socket, request);
    if (answer.size() < 3 || answer[0] < '0' || answer[0] > '3' || answer[1] != ' ')
        return fail("программа Orvana не отвечает");
    const auto outcome = Outcome(answer[0] - '0');
    const bool isForScripts = request.find(kAsJson) != std::string::npos;
    std::fputs(answer.c_str() + 2, outcome == Done || isForScripts ? stdout : stderr);
    return outcome;
}
