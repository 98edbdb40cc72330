#pragma once

#include <QApplication>

class MainForm;

// Makes images and style sheet available; once is enough.
void registerResources();

// Chooses how Qt scales and ends its sessions. To be called before the application
// object exists.
void prepareApplication();

class Application final : public QApplication
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Application)

public:
    Application(int &argc, char **argv);

    // Not owned.
    void setMainWindow(MainForm *mainForm) { m_mainForm = mainForm; }
    MainForm *mainForm() const { return m_mainForm; }
    void onClickOnDock();

    // By the session manager; an event loop that starts afterwards has to check.
    bool isAskedToQuit() const { return m_isAskedToQuit; }

protected:
    bool event(QEvent *event) override;

private:
    MainForm *m_mainForm = nullptr;
    bool m_isAskedToQuit = false;
};
