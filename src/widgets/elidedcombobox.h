#pragma once

#include <QComboBox>

// A combo box whose text ends in an ellipsis where it does not fit; its list is
// as wide as the entries need, within limits.
class ElidedComboBox final : public QComboBox
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ElidedComboBox)

public:
    explicit ElidedComboBox(QWidget *parent = nullptr);

    void showPopup() override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int listWidth() const;
};
