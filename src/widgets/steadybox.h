#pragma once

#include <QWidget>

// Holds one widget, its first child, in all of its space. When that widget's text changes and
// its size hint does not, the layout around the box has nothing to compute.
class SteadyBox final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SteadyBox)

public:
    explicit SteadyBox(QWidget *parent = nullptr)
        : QWidget(parent)
    { }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QWidget *content() const;

    QSize m_hint;
};
