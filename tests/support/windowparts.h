#pragma once

#include <QPushButton>
#include <QtTest>

#include <algorithm>

// Finding and using parts of a window as a person does.

template <typename Widget = QWidget>
Widget *part(const QWidget *window, const char *name)
{
    return window->findChild<Widget *>(QString::fromLatin1(name));
}

inline QPushButton *button(const QWidget *window, const QString &text)
{
    const auto all = window->findChildren<QPushButton *>();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto *each) { return each->text() == text; });
    return found == all.end() ? nullptr : *found;
}

inline void click(QWidget *widget)
{
    QTest::mouseClick(widget, Qt::LeftButton);
}
