#pragma once

#include <QImage>
#include <QObject>
#include <QTimer>
#include <QVariantMap>

class QDBusPendingCallWatcher;
class StorageFolder;

// Screenshots of all monitors through the desktop portal, which leaves each in a file. The
// file is deleted before it is read.
class PortalScreenshot final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PortalScreenshot)

public:
    // The storage folder must outlive it.
    PortalScreenshot(const StorageFolder &storage, QObject *parent);
    ~PortalScreenshot() override;

    // Answered by one signal, possibly before the call returns, and within half a minute; with
    // mayAsk within two, because the desktop may put a question to the user first. Without, it
    // fails unless an earlier request, perhaps of an earlier start, has succeeded.
    // Not to be called again before the answer.
    void take(bool mayAsk);

signals:
    void taken(const QImage &image);
    // A sentence for the user.
    void failed(const QString &reason);

private slots:
    void onResponse(uint code, const QVariantMap &results);

private:
    void checkPermission();
    void request();
    void listen(bool doListen);
    void onReply(const QDBusPendingCallWatcher &call);
    void giveUp();
    QString consentFile() const;
    void fail(const QString &problem, const QString &reason);

    const StorageFolder &m_storage;
    QTimer m_patience{this};
    QString m_request; // D-Bus path of the last one
    const QDBusPendingCallWatcher *m_lookup = nullptr; // the last one; may be deleted
    QString m_reason; // why the last one failed
    QString m_reasonIfSilent; // and why, if no answer comes
};
