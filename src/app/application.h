#pragma once

#include <QApplication>

class MainForm;

// Makes images and style sheet available; once is enough.
void registerResources();

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

private:
    MainForm *m_mainForm = nullptr;
};
