#pragma once

#include "windowbench.h"

// One state of one window.
struct Scene
{
    const char *name;
    const char *task; // chosen in the main window; null without that window
    std::function<QWidgetList(WindowBench &)> show;

    // Returns the windows that show it; empty when the state was not reached.
    QWidgetList open(WindowBench &bench) const
    {
        return !task || bench.openFor(s(task)) ? show(bench) : QWidgetList();
    }
};

const std::vector<Scene> &scenes();
