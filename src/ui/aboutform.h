#pragma once

#include <QDialog>

#include <memory>

class Orvana;

namespace Ui {
class AboutForm;
}

// Names the program, its version and build, and says whether a newer one exists.
// Lives as long as the main window; closing hides it.
class AboutForm final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AboutForm)

public:
    // The client must outlive the window.
    AboutForm(Orvana *client, QWidget *parent);
    ~AboutForm() override;

    // Starts a new update check.
    void update();

public slots:
    void updateAvailable(bool available);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    std::unique_ptr<Ui::AboutForm> m_ui;
    Orvana *m_orvana;
};
