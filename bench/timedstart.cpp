// timedstart TITLE PROGRAM [ARGUMENT...]: starts a program and prints how many
// milliseconds later its window with this title (or a part of it) was painted. Then
// ends the program.
#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 30s;
constexpr auto kBetweenLooks = 1ms;
// An empty window has one colour, or a few of what is below it; text alone has more.
constexpr size_t kColoursOfPaint = 8;
constexpr uint32_t kLongestTitle = 256; // 32-bit units

template <typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
Reply<T> owned(T *reply)
{
    return {reply, &std::free};
}

class Desktop
{
public:
    Desktop()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        if (xcb_connection_has_error(m_connection)) {
            std::fputs("timedstart: no display\n", stderr);
            std::exit(1);
        }
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        const auto name = owned(xcb_intern_atom_reply(
            m_connection, xcb_intern_atom(m_connection, 0, std::strlen("_NET_WM_NAME"), "_NET_WM_NAME"),
            nullptr));
        m_titleAtom = name->atom;
        const uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(m_connection, m_root, XCB_CW_EVENT_MASK, &events);
        // Nothing that is already there counts, and what comes later is noticed.
        owned(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }
    ~Desktop() { xcb_disconnect(m_connection); }
    Desktop(const Desktop &) = delete;
    Desktop &operator=(const Desktop &) = delete;

    bool hasPainted(const std::string &title)
    {
        while (const auto event = owned(xcb_poll_for_event(m_connection))) {
            if ((event->response_type & 0x7f) == XCB_CREATE_NOTIFY)
                m_new.insert(reinterpret_cast<xcb_create_notify_event_t *>(event.get())->window);
        }
        for (const xcb_window_t window : m_new) {
            if (isTitled(window, title) && isPainted(window))
                return true;
        }
        return false;
    }

private:
    bool isTitled(xcb_window_t window, const std::string &title) const
    {
        const auto name = owned(xcb_get_property_reply(
            m_connection,
            xcb_get_property(m_connection, 0, window, m_titleAtom, XCB_ATOM_ANY, 0, kLongestTitle), nullptr));
        if (!name)
            return false;
        const std::string text(static_cast<const char *>(xcb_get_property_value(name.get())),
                               static_cast<size_t>(xcb_get_property_value_length(name.get())));
        return text.find(title) != std::string::npos;
    }

    bool isPainted(xcb_window_t window) const
    {
        const auto attributes = owned(xcb_get_window_attributes_reply(
            m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
        const auto geometry =
            owned(xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr));
        if (!attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE)
            return false;
        const auto image =
            owned(xcb_get_image_reply(m_connection,
                                      xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, window, 0, 0,
                                                    geometry->width, geometry->height, ~0u),
                                      nullptr));
        if (!image)
            return false;
        const uint8_t *bytes = xcb_get_image_data(image.get());
        std::set<uint32_t> colours;
        for (int i = 0; i + 4 <= xcb_get_image_data_length(image.get()); i += 4) {
            uint32_t pixel = 0;
            std::memcpy(&pixel, bytes + i, sizeof pixel);
            if (colours.insert(pixel).second && colours.size() >= kColoursOfPaint)
                return true;
        }
        return false;
    }

    xcb_connection_t *m_connection;
    xcb_window_t m_root = 0;
    xcb_atom_t m_titleAtom = 0;
    std::set<xcb_window_t> m_new;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fputs("timedstart TITLE PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    Desktop desktop;
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    bool painted = false;
    while (!painted && Clock::now() - start < kPatience && waitpid(child, nullptr, WNOHANG) == 0) {
        painted = desktop.hasPainted(argv[1]);
        if (!painted)
            std::this_thread::sleep_for(kBetweenLooks);
    }
    const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    if (!painted) {
        std::fprintf(stderr, "timedstart: %s showed no window \"%s\"\n", argv[2], argv[1]);
        return 1;
    }
    std::printf("%.2f\n", taken.count());
    return 0;
}
