#include "ui/taskdescriptionform.h"

#include "base/log.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/descriptionrows.h"
#include "ui/tasklistform.h"
#include "ui_taskdescriptionform.h"
#include "widgets/artwork.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "widgets/simplemarkup.h"
#include "widgets/tooltips.h"

#include <QGuiApplication>
#include <QShowEvent>
#include <QSignalBlocker>

namespace {

const QString kTextStyle =
    QStringLiteral(" QTextBrowser {background-color: transparent; color:rgb(100,100,100)}");
const QString kPhraseStyle = QStringLiteral("QListView::item {background-color: rgb(255, 234, 128);}");
const QString kPageButtonStyle = QStringLiteral(
    "QPushButton{color:#646464}QPushButton{border-image: "
    "url(:/images/res/images/task_desc_dialog/descr_button_hovered.png);}"
    "QPushButton:!hover{border-image: url(:/images/res/images/task_desc_dialog/descr_button_normal.png);}"
    "QPushButton:pressed{border-image: url(:/images/res/images/task_desc_dialog/descr_button_pressed.png);}"
    "QPushButton:checked{border-image: url(:/images/res/images/task_desc_dialog/descr_button_pressed.png);"
    "color:#3f3f3f}"
    "QPushButton:disabled{border-image: url(:/images/res/images/task_desc_dialog/descr_button_disabled.png);"
    "color:#a9a5a0}");
const QString kAttachmentIcon = QStringLiteral(":/images/res/images/task_desc_dialog/attachment_icon.png");

constexpr int kAddressWidth = 510;
constexpr int kLongestAddress = 8192; // browsers open no longer ones

void logCall(const char *name)
{
    qCDebug(lcUi).noquote() << QStringLiteral("TaskDescriptionForm.cpp ") + QString::fromLatin1(name);
}

} // namespace

TaskDescriptionForm::TaskDescriptionForm(const QString &taskId, Orvana *orvana, const TaskListForm *list,
                                         QWidget *parent)
    : AbstractOrvanaForm(parent)
    , m_ui(std::make_unique<Ui::TaskDescriptionForm>())
    , m_taskId(taskId)
    , m_orvana(orvana)
    , m_list(list)
{
    m_ui->setupUi(this);
    setFixedSize(size());
    setBackground(QStringLiteral(":/images/res/images/task_desc_dialog/background.png"));
    Placement::centre(this, m_list);
    applyStyles();
    fillLists();
    m_title = new ScrollText(true, this);
    m_title->setObjectName(QStringLiteral("lbTaskLine"));
    m_title->setStyleSheet(QStringLiteral("color: #646464"));
    m_ui->titleLayout->addWidget(m_title);

    connect(m_orvana, &Orvana::taskInfoUpdated, this, &TaskDescriptionForm::updateTask);
    connect(m_ui->lbUrl, &QLabel::linkActivated, this, &TaskDescriptionForm::openLink);
    for (MarkupBrowser *browser : {m_ui->textTask, m_ui->textRequirements}) {
        connect(browser, &QTextBrowser::anchorClicked, this,
                [this](const QUrl &link) { openLink(link.toString(QUrl::FullyEncoded)); });
    }
    on_pbMainInfo_clicked();
    m_ui->textTask->setFocus();
    showInfo(m_orvana->session()->taskInfo(m_taskId));
}

TaskDescriptionForm::~TaskDescriptionForm() = default;

void TaskDescriptionForm::applyStyles()
{
    m_ui->pbMainInfo->setStyleSheet(kPageButtonStyle);
    m_ui->pbCopyrightTasks->setStyleSheet(kPageButtonStyle);
    m_ui->textTask->setStyleSheet(kTextStyle);
    m_ui->textRequirements->setStyleSheet(kTextStyle);
    m_ui->listKeywords->setStyleSheet(kPhraseStyle);
    m_ui->lbIcon->setPixmap(QPixmap::fromImage(Artwork::load(QStringLiteral(":/images/pbTask.png"))));
    m_ui->lbAttIcon->setPixmap(QPixmap::fromImage(Artwork::load(kAttachmentIcon)));
}

void TaskDescriptionForm::fillLists()
{
    const QPixmap icon = QPixmap::fromImage(Artwork::load(kAttachmentIcon));
    m_ui->listAttachments->setRowDelegate(new FileRowDelegate(icon));
    m_files = new ListModel<Attachment>(fileItem, this);
    m_ui->listAttachments->setModel(m_files);
    m_ui->listKeywords->setRowDelegate(new PhraseRowDelegate);
    m_phrases = new ListModel<Keyword>(phraseItem, this);
    m_ui->listKeywords->setModel(m_phrases);
    m_texts = new ListModel<TextTask>(textItem, this);
    m_ui->cbTexts->setModel(m_texts);
}

void TaskDescriptionForm::requestUpdateTask(const QString &taskId)
{
    logCall("requestUpdateTask");
    if (m_orvana->session()->isOnline())
        m_orvana->requestTaskInfo(taskId);
    else
        updateTask(m_orvana->session()->taskInfo(taskId));
}

void TaskDescriptionForm::updateTask(const TaskInfo &info)
{
    logCall("updateTask");
    // The signal reaches every window, whichever task it is about, and brings an empty
    // record when a request got no answer.
    if (info.id == m_taskId)
        showInfo(info);
}

void TaskDescriptionForm::showInfo(const TaskInfo &info)
{
    // Until the details have come, the task list knows this much.
    const Orvana::Session *session = m_orvana->session();
    const Task listed = info.id.isEmpty() ? session->task(session->currentTeamID(), m_taskId) : Task();
    const QString title = info.id.isEmpty() ? listed.title : info.title;
    const QDateTime deadline = info.id.isEmpty() ? listed.deadline : info.deadline;
    m_title->setText(title);
    m_title->setToolTip(literalToolTip(title));
    m_ui->lbTaskTitle->setText(titleLine(title));
    m_ui->lbTaskTitle->setToolTip(literalToolTip(title));
    m_ui->lbTaskDeadline->setText(deadline.isValid()
                                      ? QString(QStringLiteral("Истекает: ") + serviceDateTimeText(deadline))
                                      : QString());
    m_ui->lbTaskDeadline->setVisible(deadline.isValid());
    m_ui->textTask->setPlaceholderText(info.id.isEmpty() ? QStringLiteral("Описание ещё не загружено")
                                                         : QStringLiteral("Описания нет"));
    m_ui->textTask->showText(info.text);

    QStringList names;
    for (const QString &name : {info.executorName, info.creatorName, info.auditorName}) {
        if (!name.isEmpty())
            names.append(titleLine(name));
    }
    const QString people = QStringLiteral("Ответственные:") + names.join(QStringLiteral(", "));
    m_ui->lbResponsible->setText(people);
    m_ui->lbResponsible->setToolTip(literalToolTip(people));

    m_ui->lbAttachmentsNumber->setText(QString::number(info.files.size()));
    if (m_files->setRecords(info.files) && !info.files.isEmpty())
        logCall("size_human"); // once, not for each file
    m_ui->listAttachments->setVisible(!info.files.isEmpty());
    m_ui->pbCopyrightTasks->setEnabled(!info.texts.isEmpty());
    if (info.texts.isEmpty() && m_ui->mainWidget->isHidden())
        on_pbMainInfo_clicked();
    // The same texts again leave the one that is chosen, and the lists as they are scrolled.
    const QSignalBlocker blocker(m_ui->cbTexts);
    if (m_texts->setRecords(info.texts) || info.texts.isEmpty())
        updateTextTasksCombobox(info);
}

void TaskDescriptionForm::updateTextTasksCombobox(const TaskInfo &info)
{
    logCall("updateTextTasksCombobox");
    const QSignalBlocker blocker(m_ui->cbTexts);
    m_texts->setRecords(info.texts);
    m_ui->cbTexts->setCurrentIndex(info.texts.isEmpty() ? -1 : 0);
    updateTaskText(info.texts.value(0));
}

void TaskDescriptionForm::on_cbTexts_currentIndexChanged(int index)
{
    logCall("on_cbTexts_currentIndexChanged");
    updateTaskText(m_ui->cbTexts->itemData(index).value<TextTask>());
}

void TaskDescriptionForm::updateTaskText(const TextTask &textTask)
{
    logCall("updateTaskText");
    const QString address = textTask.page.toString();
    m_ui->lbUrl->ensurePolished();
    const QString shown = m_ui->lbUrl->fontMetrics()
                              .elidedText(titleLine(address), Qt::ElideMiddle, kAddressWidth)
                              .toHtmlEscaped();
    const QString target = address.size() <= kLongestAddress ? webAddress(address) : QString();
    const bool isLink = address.isEmpty() || !target.isEmpty();
    m_ui->lbUrl->setText(isLink ? QString(QStringLiteral("URL: <a href=\"") + target.toHtmlEscaped()
                                          + QStringLiteral("\" style=\"color:rgb(100,100,100)\">") + shown
                                          + QStringLiteral("</a>"))
                                : QString(QStringLiteral("URL: ") + shown));
    m_ui->lbUrl->setToolTip(literalToolTip(address));
    const bool opens = !target.isEmpty();
    if (!opens && focusWidget() == m_ui->lbUrl)
        focusNextChild();
    m_ui->lbUrl->setFocusPolicy(opens ? Qt::StrongFocus : Qt::NoFocus);
    m_ui->lbSignNumber->setText(QStringLiteral("Количество знаков: ") + titleLine(textTask.minCount));
    m_ui->textRequirements->showText(textTask.text);
    m_phrases->setRecords(textTask.keywords);
}

QString TaskDescriptionForm::size_human(float bytes)
{
    logCall("size_human");
    return sizeText(bytes);
}

void TaskDescriptionForm::on_pbHide_clicked()
{
    logCall("on_pbHide_clicked");
    hide();
}

void TaskDescriptionForm::on_pbCopyrightTasks_clicked()
{
    logCall("on_pbCopyrightTasks_clicked");
    m_ui->pbCopyrightTasks->setChecked(true);
    m_ui->mainWidget->hide();
    m_ui->copyrightTasksWidget->show();
}

void TaskDescriptionForm::on_pbMainInfo_clicked()
{
    logCall("on_pbMainInfo_clicked");
    m_ui->pbMainInfo->setChecked(true);
    m_ui->copyrightTasksWidget->hide();
    m_ui->mainWidget->show();
}

void TaskDescriptionForm::showAll()
{
    logCall("showAll");
    comeBack();
}

void TaskDescriptionForm::hideAll()
{
    logCall("hideAll");
    hideForNow();
}

void TaskDescriptionForm::showEvent(QShowEvent *event)
{
    AbstractOrvanaForm::showEvent(event);
    // Its screen may have gone while it was hidden.
    if (!event->spontaneous() && !QGuiApplication::screenAt(frameGeometry().center()))
        Placement::centre(this, m_list);
}

void TaskDescriptionForm::openLink(const QString &link)
{
    m_orvana->openUrl(link);
}
