#define QT_STATICPLUGIN

#include <QImageIOHandler>
#include <QImageIOPlugin>
#include <QImageReader>
#include <QScopedValueRollback>

// Qt asks every image plugin of the system for its opinion of a file before it reads a PNG by
// itself, and so loads them all with their libraries, of which the client needs none until its
// first screenshot. A plugin for the suffix comes first: this one, which asks Qt's own reader.
namespace {

const QByteArray kPng = QByteArrayLiteral("png");
const QByteArray kSignature = QByteArrayLiteral("\x89PNG\r\n\x1a\n");

thread_local bool isAskingQt = false;

bool isPng(QIODevice *device)
{
    return device && device->isReadable() && device->peek(kSignature.size()) == kSignature;
}

class PngHandler final : public QImageIOHandler
{
public:
    explicit PngHandler(QIODevice *device)
        : m_reader(device, kPng)
    {
        m_reader.setAutoDetectImageFormat(false);
    }

    // Qt asks while it holds the lock that the choice of another handler would wait for.
    bool canRead() const override { return isPng(device()); }
    bool read(QImage *image) override { return reader().read(image); }
    bool supportsOption(ImageOption option) const override { return option == Size; }
    QVariant option(ImageOption option) const override
    {
        return option == Size ? QVariant(reader().size()) : QVariant();
    }

private:
    QImageReader &reader() const
    {
        const QScopedValueRollback<bool> asking(isAskingQt, true);
        m_reader.canRead(); // chooses Qt's handler
        return m_reader;
    }

    mutable QImageReader m_reader;
};

} // namespace

class PngPlugin final : public QImageIOPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QImageIOHandlerFactoryInterface_iid FILE "app/pngplugin.json")

public:
    Capabilities capabilities(QIODevice *device, const QByteArray &format) const override
    {
        return !isAskingQt && format == kPng && isPng(device) ? CanRead : Capabilities();
    }

    QImageIOHandler *create(QIODevice *device, const QByteArray &format) const override
    {
        auto *handler = new PngHandler(device);
        handler->setDevice(device);
        handler->setFormat(format);
        return handler;
    }
};

#include "pngplugin.moc"
