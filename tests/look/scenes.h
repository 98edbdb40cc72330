#pragma once

#include "windowbench.h"

#include <functional>
#include <memory>
#include <vector>

/// The client in front of a service of its own, brought into some state to be looked at.
class Stage final
{
public:
    Stage() = default;
    ~Stage();
    Q_DISABLE_COPY_MOVE(Stage)

    WindowBench bench;

    /// The main window with this task chosen; an empty id leaves it without one.
    MainForm *openMain(const QString &taskId);
    bool startTimer();
    bool goOffline();
    QWidget *openTaskList();
    QWidget *openDescription(const QString &taskId);
    /// The pointer comes to rest on the widget, so that it is drawn as hovered.
    static bool hover(QWidget *widget);
    static bool focus(QWidget *widget);
    /// Shows a window that ends with the stage.
    template <typename Window>
    Window *own(std::unique_ptr<Window> window)
    {
        Window *shown = window.get();
        m_owned.push_back(std::move(window));
        shown->show();
        return shown;
    }

private:
    std::vector<std::unique_ptr<QWidget>> m_owned;
};

/// One state of one window.
#undef x
struct Scene
{
    const char *name;
    /// Returns the windows to look at; empty when the state was not reached.
    std::function<QWidgetList(Stage &)> open;
};

const std::vector<Scene> &scenes();
