#pragma once

#include <QLabel>

// A label that works like a button: by mouse, and by keyboard when it may have
// the focus.
class ClickableLabel final : public QLabel
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ClickableLabel)

public:
    using QLabel::QLabel;

signals:
    void clicked();

protected:
    bool event(QEvent *event) override;
};
