#include "ui/aboutform.h"

#include "base/buildstamp.h"
#include "service/orvana.h"
#include "ui_aboutform.h"
#include "update/orvanaupdate.h"
#include "widgets/activation.h"
#include "widgets/artwork.h"

#include <QCoreApplication>

namespace {

// As links do, it opens when the button is released.
bool opensLink(const QEvent *event, const QWidget *link)
{
    if (event->type() != QEvent::MouseButtonRelease)
        return event->type() == QEvent::KeyPress && isActivation(event);
    const auto *mouse = static_cast<const QMouseEvent *>(event);
    return mouse->button() == Qt::LeftButton && link->rect().contains(mouse->pos());
}

} // namespace

AboutForm::AboutForm(Orvana *client, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::AboutForm>())
    , m_orvana(client)
{
    m_ui->setupUi(this);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    // Set here: the form description would load it in the plain size only.
    m_ui->label->setPixmap(QPixmap::fromImage(Artwork::load(QStringLiteral(":/images/res/images/OV.png"))));
    m_ui->lbVersion->setText(QStringLiteral("Версия: ") + QCoreApplication::applicationVersion());
    m_ui->lbBuildDate->setText(QStringLiteral("Дата сборки: ") + buildStamp());
    const QString address = m_orvana->serviceUrl().toHtmlEscaped();
    m_ui->lbUrl->setText(
        QStringLiteral("<a href=\"") + address
        + QStringLiteral("\"><span style=\"font-size:10pt; text-decoration: underline; color:#0000ff;\">")
        + address + QStringLiteral("</span></a>"));
    m_ui->lbUrl->setAccessibleName(QStringLiteral("Открыть ") + m_orvana->serviceUrl());
    m_ui->lbUrl->installEventFilter(this);
    connect(m_orvana, &Orvana::updateAvailable, this, &AboutForm::updateAvailable);
    ensurePolished();
    setFixedSize(sizeHint());
}

AboutForm::~AboutForm() = default;

void AboutForm::update()
{
    m_ui->lbUpdateInfo->setText(QStringLiteral("Проверка обновления..."));
    m_orvana->requestCheckUpdate();
}

void AboutForm::updateAvailable(bool available)
{
    m_ui->lbUpdateInfo->setText(available ? QString(QStringLiteral("Доступно обновление ")
                                                    + OrvanaUpdate::instance()->availableUpdateVersion())
                                          : QStringLiteral("Установлена последняя версия"));
}

bool AboutForm::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_ui->lbUrl && opensLink(event, m_ui->lbUrl)) {
        m_orvana->openUrl(m_orvana->serviceUrl());
        return true;
    }
    return QDialog::eventFilter(watched, event);
}
