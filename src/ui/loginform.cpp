#include "ui/loginform.h"

#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui_loginform.h"
#include "widgets/artwork.h"
#include "widgets/placement.h"

#include <QMouseEvent>
#include <QPainter>
#include <QShortcut>

namespace {

// A check that got no answer at all, in the order of the codes below.
constexpr int kNoConnection = 1;

} // namespace

LoginForm::LoginForm(Orvana *orvana, QWidget *parent)
    : QDialog(parent)
    , m_ui(std::make_unique<Ui::LoginForm>())
    , m_orvana(orvana)
{
    m_ui->setupUi(this);
    m_ui->pbEnter->setObjectName(QStringLiteral("pbOrvana"));
    setAttribute(Qt::WA_TranslucentBackground);
    m_ui->wTop->setAttribute(Qt::WA_StyledBackground);
    setWindowFlags((windowFlags() & Qt::Dialog) | Qt::Popup | Qt::FramelessWindowHint
                   | Qt::WindowStaysOnTopHint);
    m_ui->wTop->installEventFilter(this);
    m_ui->wLoginPane->installEventFilter(this);
    m_topBar = Artwork::load(QStringLiteral(":/images/wlogin-top.png"));
    m_pane = Artwork::load(QStringLiteral(":/images/login.png"));

    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, &LoginForm::on_pbClose_clicked);

    // Frameless windows report a wrong place unless they are sized first.
    ensurePolished();
    adjustSize();
    Placement::centre(this, parent);
    activateWindow();

    m_ui->lbEmail->setText(m_orvana->session()->login());
    m_ui->lbPassword->setText(m_orvana->session()->password());
    connect(m_orvana, &Orvana::error, this, &LoginForm::errorOccured);
    connect(m_orvana, &Orvana::loginOk, this, &LoginForm::accept);
    connect(m_orvana, &Orvana::loginUnanswered, this, [this] { errorOccured(kNoConnection); });
    m_ui->lbEmail->setFocus();
}

LoginForm::~LoginForm() = default;

void LoginForm::setChecking(bool checking)
{
    m_ui->pbEnter->setEnabled(!checking);
    m_ui->pbEnter->setText(checking ? QStringLiteral("Проверка...") : QStringLiteral("Вход"));
}

void LoginForm::on_pbEnter_clicked()
{
    m_ui->lbInfo->clear();
    const QString email = m_ui->lbEmail->text();
    const QString password = m_ui->lbPassword->text();
    if (email.isEmpty()) {
        m_ui->lbInfo->setText(QStringLiteral("Введите e-mail"));
        m_ui->lbEmail->setFocus();
        return;
    }
    if (password.isEmpty()) {
        m_ui->lbInfo->setText(QStringLiteral("Введите пароль"));
        m_ui->lbPassword->setFocus();
        return;
    }
    setChecking(true);
    m_ui->lbPassword->setModified(false);
    m_orvana->requestCheckLogin(email, password);
}

void LoginForm::errorOccured(int code)
{
    const bool isChecking = !m_ui->pbEnter->isEnabled();
    switch (code) {
    case 0:
        m_ui->lbInfo->setText(QStringLiteral("Неверный логин или пароль"));
        // Requests of the account before are refused too; what is being typed stays as it is.
        if (isChecking && !m_ui->lbPassword->isModified()) {
            m_ui->lbPassword->setFocus();
            m_ui->lbPassword->selectAll();
        }
        break;
    case 1:
    case 2:
    case 3:
        m_ui->lbInfo->setText(QStringLiteral("Не удалось соединиться с сервером."));
        break;
    case 5:
        m_ui->lbInfo->setText(QStringLiteral("Ошибка соединения с базой данных."));
        break;
    default:
        break;
    }
    setChecking(false);
}

void LoginForm::on_pbClose_clicked()
{
    reject();
}

bool LoginForm::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Paint && watched == m_ui->wTop) {
        drawTopBar();
        return true;
    }
    if (event->type() == QEvent::Paint && watched == m_ui->wLoginPane) {
        drawPane();
        return true;
    }
    movingImpl(event, watched);
    return false;
}

void LoginForm::showEvent(QShowEvent *event)
{
    QImage whole(size(), QImage::Format_ARGB32_Premultiplied);
    whole.fill(Qt::transparent);
    QPainter painter(&whole);
    painter.drawImage(m_ui->wTop->geometry(), m_topBar);
    painter.drawImage(m_ui->wLoginPane->geometry(), m_pane);
    painter.end();
    Artwork::trimToPane(this, whole);
    QDialog::showEvent(event);
}

void LoginForm::drawTopBar()
{
    QPainter painter(m_ui->wTop);
    Artwork::drawPane(painter, painter.viewport(), m_topBar);
}

void LoginForm::drawPane()
{
    QPainter painter(m_ui->wLoginPane);
    Artwork::drawPane(painter, painter.viewport(), m_pane);
}

void LoginForm::movingImpl(QEvent *event, QObject *watched)
{
    if (watched != m_ui->wTop)
        return;
    if (event->type() == QEvent::MouseMove) {
        auto *mouse = static_cast<QMouseEvent *>(event);
        // A press on the close button is none on the bar, which gets its moves all the same.
        if (!mouse->buttons().testFlag(Qt::LeftButton) || !m_anchor)
            return;
        // The anchor stays: it is a place inside the bar, which moves along.
        move(pos() + mouse->localPos().toPoint() - *m_anchor);
        mouse->accept();
    } else if (event->type() == QEvent::MouseButtonPress) {
        auto *mouse = static_cast<QMouseEvent *>(event);
        m_anchor = mouse->localPos().toPoint();
        mouse->accept();
    } else if (event->type() == QEvent::MouseButtonRelease) {
        m_anchor.reset();
    }
}
