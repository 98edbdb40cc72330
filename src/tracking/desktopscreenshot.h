#pragma once

#include <QImage>
#include <QObject>

class StorageFolder;

// A screenshot of the whole desktop, later, or why not.
class DesktopScreenshot : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DesktopScreenshot)

public:
    explicit DesktopScreenshot(QObject *parent)
        : QObject(parent)
    { }
    ~DesktopScreenshot() override = default;

    // The source that suits this session. The storage folder, which remembers that the user
    // has consented, must outlive it.
    static DesktopScreenshot *forSession(const StorageFolder &storage, QObject *parent);

    // Answered by one signal, possibly before the call returns. Not to be called again before
    // that.
    virtual void take() = 0;
    // To be called when the user has just acted: the desktop may put a question to them.
    // Only a failure is reported.
    virtual void askForConsent() { }

signals:
    // All monitors in one image; null when the X server refused it.
    void taken(const QImage &image);
    // A sentence for the user that says what to do; details are in the log.
    void failed(const QString &reason);
};

// False for a null image. Ends at the first pixel that differs.
bool isOneColour(const QImage &image);
