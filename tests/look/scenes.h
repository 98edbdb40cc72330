#pragma once

#include "widgets/placement.h"
#include "windowbench.h"

#include <functional>
#include <memory>
#include <vector>

// The client in front of a service of its own, brought into some state.
class Stage final
{
public:
    Stage() = default;
    ~Stage();
    Q_DISABLE_COPY_MOVE(Stage)

    WindowBench bench;

    // The main window with this task chosen; an empty id leaves it without one.
    MainForm *openMain(const QString &taskId);
    QWidget *openTaskList();
    static bool focus(QWidget *widget);
    // Shows a window that ends with the stage, in the middle of the other's screen.
    template <typename Window>
    Window *own(std::unique_ptr<Window> window, const QWidget *other = nullptr)
    {
        Window *shown = window.get();
        m_owned.push_back(std::move(window));
        if (other)
            Placement::centre(shown, other);
        shown->show();
        return shown;
    }

private:
    std::vector<std::unique_ptr<QWidget>> m_owned;
};

// One state of one window.
struct Scene
{
    const char *name;
    // Returns the windows that show it; empty when the state was not reached.
    std::function<QWidgetList(Stage &)> open;
};

const std::vector<Scene> &scenes();
