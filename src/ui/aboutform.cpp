#include "ui/aboutform.h"

#include "base/buildstamp.h"
#include "service/orvana.h"
#include "ui_aboutform.h"
#include "update/orvanaupdate.h"
#include "widgets/artwork.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QMouseEvent>

namespace {

bool isActivation(const QEvent *event, const QWidget *widget)
{
    if (event->type() == QEvent::MouseButtonRelease) {
        const auto *mouse = static_cast<const QMouseEvent *>(event);
        return mouse->button() == Qt::LeftButton && widget->rect().contains(mouse->pos());
    }
    if (event->type() != QEvent::KeyPress)
        return false;
    const int key = static_cast<const QKeyEvent *>(event)->key();
    return key == Qt::Key_Space || key == Qt::Key_Return || key == Qt::Key_Enter;
}

} // namespace

AboutForm::AboutForm(Orvana *client, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::AboutForm>())
    , m_orvana(client)
{
    m_ui->setupUi(this);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    // Set here: a form's own pictures are not looked for in the dense size.
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
    if (watched == m_ui->lbUrl && isActivation(event, m_ui->lbUrl)) {
        m_orvana->openUrl(m_orvana->serviceUrl());
        return true;
    }
    return QDialog::eventFilter(watched, event);
}
