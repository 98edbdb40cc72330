#include "rows.h"
#include "ui/descriptionrows.h"
#include "ui/taskdescriptionform.h"
#include "urlcatcher.h"
#include "widgets/markupbrowser.h"
#include "widgets/scrolltext.h"
#include "windowbench.h"

namespace {

const QString kTask = s("1701");

TaskInfo sample()
{
    TextTask first;
    first.text = s("Требования 1");
    first.minCount = s("4000");
    first.page = QUrl(s("https://orvana.example/a?b=1&c=2"));
    first.keywords = {{s("1"), s("фраза"), s("3"), s("5")}};
    TextTask second;
    second.text = s("Требования 2");
    second.page = QUrl(s("file:///etc/passwd"));
    TaskInfo info;
    info.id = kTask;
    info.title = s("Отчёт & <b>план</b>");
    info.deadline = QDateTime(QDate(2024, 1, 31), QTime(18, 0));
    info.text = s("Строка 1\nСтрока 2");
    info.executorName = s("Анна");
    info.auditorName = s("<i>Мария</i>");
    info.files = {{s("1"), s("f1"), s("<b>план</b>.docx"), s("0")},
                  {s("2"), s("f2"), s("схема.png"), s("1048576")}};
    for (const char *size : {"1023", "1024", "2251799813685248", "many", "inf", "nan"})
        info.files.append({QString(), QString(), s("f"), s(size)});
    info.texts = {first, second};
    return info;
}

template <typename Widget>
Widget *part(const QWidget &form, const char *name)
{
    return form.findChild<Widget *>(QString::fromLatin1(name));
}

QString labelText(const QWidget &form, const char *name)
{
    return part<QLabel>(form, name)->text();
}

// Every text of a list's row, from left to right.
QStringList rowTexts(const QListView *list, int row)
{
    QStringList texts;
    for (const int role : {int(Qt::DisplayRole), int(SizeRole), int(InexactRole)}) {
        const QString text = list->model()->index(row, 0).data(role).toString();
        if (!text.isEmpty())
            texts.append(text);
    }
    return texts;
}

int count(const QListView *list)
{
    return list->model()->rowCount();
}

// Where the first link of the text is drawn.
QPoint firstLink(const MarkupBrowser &browser)
{
    for (QTextBlock block = browser.document()->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            if (!it.fragment().charFormat().isAnchor())
                continue;
            QTextCursor cursor(block);
            cursor.setPosition(it.fragment().position() + 1);
            return browser.cursorRect(cursor).center();
        }
    }
    return {};
}

} // namespace

class TaskDescriptionTest final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        WindowBench::applyStyle();
        m_client = std::make_unique<TestClient>();
        QVERIFY(m_client->logIn());
        m_client->session()->setOnline(true);
    }
    void cleanupTestCase() { m_client.reset(); }

    // The text engine by itself crashes on the first and takes seconds for others;
    // the time limit of the suite would tell.
    void hugeMarkupIsShown()
    {
        const QStringList huge{s("<table><tr><td>").repeated(7000),
                               s("<ul><li>x").repeated(7000),
                               s("<ol>") + s("<li>x").repeated(15000),
                               s("x").repeated(100000),
                               s("<b \"").repeated(30000),
                               s("<b>") + s("&lt;").repeated(30000)};
        for (const QString &text : huge) {
            TaskInfo info = sample();
            info.text = text + s("<p>end");
            const auto form = open(info);
            QVERIFY(form && !part<MarkupBrowser>(*form, "textTask")->document()->isEmpty());
        }
    }

    void nothingIsLoaded()
    {
        const QString picture = m_client->server.baseUrl() + s("/picture.png");
        const auto form = open();
        QVERIFY(form);
        auto *browser = part<MarkupBrowser>(*form, "textTask");
        // Also past the filter: a document asks its browser for what it names.
        browser->setHtml(
            s("<link rel=stylesheet href='%1'><img src='file:///proc/self/exe'><img src='%1'>").arg(picture));
        browser->repaint();
        for (const QString &url : {picture, s("file:///proc/self/exe"), s("qrc:/images/main.png")}) {
            const QVariant loaded = browser->document()->resource(QTextDocument::ImageResource, QUrl(url));
            QVERIFY(loaded.toByteArray().isEmpty() && loaded.value<QImage>().isNull());
        }
        QSignalSpy updated(m_client->session(), &Orvana::Session::teamsUpdated);
        m_client->orvana->requestTeamsAndTasks();
        QVERIFY(updated.wait(TestClient::waitLimit));
        QVERIFY(m_client->server.requestsTo(s("/picture.png")).isEmpty());
    }

    void links()
    {
        const std::pair<const char *, const char *> rows[] = {
            {"https://orvana.example/a?b=1&c=2", "https://orvana.example/a?b=1&c=2"},
            {"http://orvana.example/a%20b", "http://orvana.example/a%20b"},
            {"orvana.example/a b?c=\"1\"&d=2", "http://orvana.example/a%20b?c=%221%22&d=2"},
            {"orvana.example:8080/x", "http://orvana.example:8080/x"},
            {"//intranet/x", "http://intranet/x"},
            {"mailto:a@orvana.example", ""},
            {"a@orvana.example", ""},
            {"tel:112", ""},
            {"/etc/passwd", ""},
            {"см. orvana.example", ""},
            {"нет", ""},
            {"file:///etc/passwd", ""},
            {"javascript:alert(1)", ""},
            {"data:text/html,x", ""}};
        for (const auto &[address, target] : rows) {
            const int clicks = *target ? 1 : 0; // those that open something
            UrlCatcher catcher;
            TaskInfo info = sample();
            info.text = s("<p><a href=\"") + s(address).toHtmlEscaped() + s("\">link link</a></p>");
            info.texts[0].page = QUrl(s(address));
            const auto form = open(info);
            QVERIFY(form);
            auto *browser = part<MarkupBrowser>(*form, "textTask");
            const QPoint link = firstLink(*browser);
            QCOMPARE(link.isNull() ? 0 : 1, clicks);
            if (!link.isNull())
                QTest::mouseClick(browser->viewport(), Qt::LeftButton, Qt::NoModifier, link);
            // A text that got past the filter opens nothing more.
            emit browser->anchorClicked(QUrl(s(clicks ? target : address)));
            QCOMPARE(browser->source(), QUrl());
            QTest::mouseClick(part<QPushButton>(*form, "pbCopyrightTasks"), Qt::LeftButton);
            auto *url = part<QLabel>(*form, "lbUrl");
            QCOMPARE(QTextDocumentFragment::fromHtml(url->text()).toPlainText(),
                     s("URL: ") + QUrl(s(address)).toString());
            QTest::mouseClick(url, Qt::LeftButton, Qt::NoModifier, QPoint(60, url->height() / 2));
            part<QListView>(*form, "listKeywords")->setFocus();
            QTest::keyClick(form->focusWidget(), Qt::Key_Tab);
            QCOMPARE(form->focusWidget() == url, clicks > 0); // without a link there is nothing to do there
            QTest::keyClick(url, Qt::Key_Tab);
            QTest::keyClick(form->focusWidget(), Qt::Key_Return);
            for (int i = 0; i < 2; ++i) // without the focus, and with it
                WindowBench::press(url);
            QTRY_COMPARE(catcher.opened.size(), 6 * clicks);
            for (const QString &opened : qAsConst(catcher.opened))
                QCOMPARE(QUrl(opened), QUrl(s(target)));
        }
    }

    void showsARecord()
    {
        const TaskInfo info = sample();
        const auto form = open(info);
        QVERIFY(form);
        QCOMPARE(part<ScrollText>(*form, "lbTaskLine")->text(), info.title);
        QCOMPARE(labelText(*form, "lbTaskTitle"), info.title);
        QCOMPARE(labelText(*form, "lbTaskDeadline"), s("Истекает: 2024-01-31 18:00:00"));
        QCOMPARE(labelText(*form, "lbResponsible"), s("Ответственные:Анна, <i>Мария</i>"));
        for (const char *label : {"lbTaskTitle", "lbResponsible"})
            QCOMPARE(part<QLabel>(*form, label)->textFormat(), Qt::PlainText);
        QCOMPARE(part<MarkupBrowser>(*form, "textTask")->toPlainText(), info.text);
        QCOMPARE(labelText(*form, "lbAttachmentsNumber"), s("8"));
        const auto *files = part<QListView>(*form, "listAttachments");
        QStringList listed;
        for (int i = 0; i < count(files); ++i)
            listed += rowTexts(files, i);
        QCOMPARE(listed,
                 texts({"<b>план</b>.docx", "0.00 B", "схема.png", "1.00 MB", "f", "1023.00 B", "f",
                        "1.00 KB", "f", "2048.00 TB", "f", "0.00 B", "f", "0.00 B", "f", "0.00 B"}));

        QTest::mouseClick(part<QPushButton>(*form, "pbCopyrightTasks"), Qt::LeftButton);
        QVERIFY(part<QWidget>(*form, "copyrightTasksWidget")->isVisible());
        QVERIFY(!part<QWidget>(*form, "mainWidget")->isVisible());
        const auto *requirements = part<MarkupBrowser>(*form, "textRequirements");
        QCOMPARE(requirements->toPlainText(), s("Требования 1"));
        QCOMPARE(labelText(*form, "lbSignNumber"), s("Количество знаков: 4000"));
        const auto *phrases = part<QListView>(*form, "listKeywords");
        QCOMPARE(rowTexts(phrases, 0), texts({"фраза", "Точн. 3", "Неточн. 5"}));
        part<QComboBox>(*form, "cbTexts")->setCurrentIndex(1);
        QCOMPARE(requirements->toPlainText(), s("Требования 2"));
        QCOMPARE(labelText(*form, "lbUrl"), s("URL: file:///etc/passwd"));
        QCOMPARE(count(phrases), 0);
    }

    void taskWithoutTexts()
    {
        const auto form = open();
        QVERIFY(form && QTest::qWaitForWindowActive(form.get(), TestClient::waitLimit));
        QTest::keyClick(form.get(), Qt::Key_2, Qt::AltModifier);
        // A key holds the button down for a moment.
        QTRY_VERIFY(part<QWidget>(*form, "copyrightTasksWidget")->isVisible());
        TaskInfo info = sample();
        info.texts.clear();
        form->updateTask(info);
        QVERIFY(!part<QPushButton>(*form, "pbCopyrightTasks")->isEnabled());
        QCOMPARE(count(part<QListView>(*form, "listKeywords")), 0);
        // The page that has nothing left to show is left.
        QVERIFY(part<QWidget>(*form, "mainWidget")->isVisible());
    }

    void recordsThatCome()
    {
        const auto form = open();
        QVERIFY(form);
        auto *texts = part<QComboBox>(*form, "cbTexts");
        texts->setCurrentIndex(1);
        // Without the service, what is known is drawn again.
        m_client->session()->setOnline(false);
        form->requestUpdateTask(kTask);
        QVERIFY(m_client->orvana->findChild<QNetworkAccessManager *>()
                    ->findChildren<QNetworkReply *>()
                    .isEmpty());
        m_client->session()->setOnline(true);
        // Of another task, and after a failed request.
        TaskInfo info = sample();
        info.id = s("1702");
        info.title = s("Другая");
        for (const TaskInfo &record : {info, TaskInfo()})
            emit m_client->orvana->taskInfoUpdated(record);
        QCOMPARE(labelText(*form, "lbTaskTitle"), sample().title);
        info.id = kTask;
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(labelText(*form, "lbTaskTitle"), info.title);
        QCOMPARE(texts->currentIndex(), 1);
        info.texts[1].text = s("Другие требования");
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(texts->currentIndex(), 0);
        QCOMPARE(part<MarkupBrowser>(*form, "textRequirements")->toPlainText(), s("Требования 1"));
    }

private:
    std::unique_ptr<TaskDescriptionForm> open(const TaskInfo &info = sample())
    {
        m_client->session()->addTaskInfoData(kTask, info);
        auto form = std::make_unique<TaskDescriptionForm>(kTask, m_client->orvana.get(), nullptr);
        form->show();
        return QTest::qWaitForWindowExposed(form.get(), TestClient::waitLimit) ? std::move(form) : nullptr;
    }

    std::unique_ptr<TestClient> m_client;
};

QTEST_MAIN(TaskDescriptionTest)
#include "tst_taskdescription.moc"
