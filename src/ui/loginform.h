#pragma once

#include <QDialog>
#include <QImage>
#include <QPoint>

#include <memory>
#include <optional>

class Orvana;

namespace Ui {
class LoginForm;
}

// Signs in with e-mail and password; accepted means that the session now holds
// the account. The client must outlive it.
class LoginForm final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LoginForm)

public:
    explicit LoginForm(Orvana *orvana, QWidget *parent = nullptr);
    ~LoginForm() override;

    bool eventFilter(QObject *watched, QEvent *event) override;

protected:
    void showEvent(QShowEvent *event) override;

public slots:
    void errorOccured(int code);

private slots:
    void on_pbEnter_clicked();
    void on_pbClose_clicked();

private:
    void drawTopBar();
    void drawPane();
    void movingImpl(QEvent *event, QObject *watched);
    void setChecking(bool checking);

    std::unique_ptr<Ui::LoginForm> m_ui;
    QImage m_topBar;
    QImage m_pane;
    std::optional<QPoint> m_anchor; // the place of the press on the bar, until the release
    Orvana *m_orvana;
};
