#pragma once

#include <QDialog>

class Orvana;

class AboutForm final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AboutForm)

public:
    AboutForm(Orvana *client, QWidget *parent);
    ~AboutForm() override;

    // Starts a new update check.
    void update();
};
