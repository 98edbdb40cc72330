#pragma once

#include <QDBusMessage>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <cstdlib>
#include <memory>

class QDBusPendingCallWatcher;
class QSocketNotifier;

// Screenshots of all monitors in device pixels by KWin, which sends raw pixels through a
// pipe to programs whose desktop entry asks for that.
class KwinScreenshot final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KwinScreenshot)

public:
    explicit KwinScreenshot(QObject *parent);
    ~KwinScreenshot() override;

    // Answered by one signal within ten seconds. Not to be called again before that.
    void take();

signals:
    void taken(const QImage &image);
    // A sentence for the user.
    void failed(const QString &reason);
    // There is no KWin, or it does not let this program, or no longer.
    void unavailable();

private:
    struct Free
    {
        void operator()(uchar *pixels) const { std::free(pixels); }
    };

    void onReply(const QDBusMessage &reply);
    bool acceptImage(const QVariantMap &description);
    void readPixels();
    void dropCall();
    void finish();
    void fail(const QString &problem);

    QTimer m_patience{this};
    QPointer<QDBusPendingCallWatcher> m_call;
    QPointer<QSocketNotifier> m_notifier;
    int m_pipe = -1;
    bool m_hasAnswered = false;
    int m_width = 0;
    int m_height = 0;
    int m_line = 0; // bytes
    QImage::Format m_format = QImage::Format_Invalid;
    std::unique_ptr<uchar, Free> m_pixels;
    size_t m_size = 0; // bytes
    size_t m_received = 0;
};
