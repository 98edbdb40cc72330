#include "rows.h"
#include "ui/descriptionrows.h"
#include "ui/taskdescriptionform.h"
#include "urlcatcher.h"
#include "widgets/markupbrowser.h"
#include "widgets/scrolltext.h"
#include "windowbench.h"
#include "windowparts.h"

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

QString labelText(const QWidget *form, const char *name)
{
    return part<QLabel>(form, name)->text();
}

// Every text of a list, row by row, from left to right.
QStringList listed(const QWidget *form, const char *name)
{
    QStringList texts;
    const QAbstractItemModel *model = part<QListView>(form, name)->model();
    for (int row = 0; row < model->rowCount(); ++row) {
        for (const int role : {int(Qt::DisplayRole), int(SizeRole), int(InexactRole)})
            texts.append(model->index(row, 0).data(role).toString());
    }
    texts.removeAll(QString());
    return texts;
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

    // The text engine by itself crashes on the first and takes seconds for others, which the
    // time limit of the test would show.
    void hugeMarkupIsShown()
    {
        const QStringList huge{s("<table><tr><td>").repeated(7000), s("<ul><li>x").repeated(7000),
                               s("<li>x").repeated(15000),          s("x").repeated(100000),
                               s("<b \"").repeated(30000),          s("<b>") + s("&lt;").repeated(30000)};
        for (const QString &text : huge) {
            TaskInfo info = sample();
            info.text = text + s("<p>end");
            const auto form = open(info);
            QVERIFY(form && !part<MarkupBrowser>(form.get(), "textTask")->document()->isEmpty());
        }
    }

    void nothingIsLoaded()
    {
        const QString picture = m_client->server.baseUrl() + s("/picture.png");
        const auto form = open();
        QVERIFY(form);
        auto *browser = part<MarkupBrowser>(form.get(), "textTask");
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

    void links_data()
    {
        // The result is what opens; nothing but web pages does.
        addRows({{"https://orvana.example/a?b=1&c=2", "https://orvana.example/a?b=1&c=2"},
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
                 {"", ""},
                 {"file:///etc/passwd", ""},
                 {"javascript:alert(1)", ""},
                 {"data:text/html,x", ""}});
    }

    void links()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const bool opens = !result.isEmpty();
        const UrlCatcher catcher;
        TaskInfo info = sample();
        info.text = s("<p><a href=\"") + input.toHtmlEscaped() + s("\">link link</a></p>");
        info.texts[0].page = QUrl(input);
        const auto form = open(info);
        QVERIFY(form);
        auto *browser = part<MarkupBrowser>(form.get(), "textTask");
        const QPoint link = firstLink(*browser);
        QCOMPARE(!link.isNull(), opens);
        if (opens)
            QTest::mouseClick(browser->viewport(), Qt::LeftButton, {}, link);
        // A text that got past the filter opens nothing more.
        emit browser->anchorClicked(QUrl(opens ? result : input));
        QCOMPARE(browser->source(), QUrl());
        click(part(form.get(), "pbCopyrightTasks"));
        auto *url = part<QLabel>(form.get(), "lbUrl");
        QCOMPARE(QTextDocumentFragment::fromHtml(url->text()).toPlainText(),
                 s("URL: ") + QUrl(input).toString());
        QTest::mouseClick(url, Qt::LeftButton, {}, QPoint(60, url->height() / 2));
        part(form.get(), "listKeywords")->setFocus();
        QTest::keyClick(form->focusWidget(), Qt::Key_Tab);
        QCOMPARE(form->focusWidget() == url, opens); // without a link there is nothing to do there
        QTest::keyClick(url, Qt::Key_Tab);
        QTest::keyClick(form->focusWidget(), Qt::Key_Return);
        for (int i = 0; i < 2; ++i) // without the focus, and with it
            WindowBench::press(url);
        QTRY_COMPARE(catcher.opened.size(), opens ? 6 : 0);
        for (const QString &opened : catcher.opened)
            QCOMPARE(QUrl(opened), QUrl(result));
        // Nor does it keep the focus without a link.
        url->setFocus();
        form->updateTaskText(TextTask());
        QVERIFY(form->focusWidget() != url);
    }

    void showsARecord()
    {
        const TaskInfo info = sample();
        const auto owned = open(info);
        QVERIFY(owned);
        const QWidget *form = owned.get();
        QCOMPARE(part<ScrollText>(form, "lbTaskLine")->text(), info.title);
        QCOMPARE(labelText(form, "lbTaskTitle"), info.title);
        QCOMPARE(labelText(form, "lbTaskDeadline"), s("Истекает: 2024-01-31 18:00:00"));
        QCOMPARE(labelText(form, "lbResponsible"), s("Ответственные:Анна, <i>Мария</i>"));
        for (const char *label : {"lbTaskTitle", "lbResponsible"})
            QCOMPARE(part<QLabel>(form, label)->textFormat(), Qt::PlainText);
        QCOMPARE(part<MarkupBrowser>(form, "textTask")->toPlainText(), info.text);
        QCOMPARE(labelText(form, "lbAttachmentsNumber"), s("8"));
        QCOMPARE(listed(form, "listAttachments"),
                 texts({"<b>план</b>.docx", "0.00 B", "схема.png", "1.00 MB", "f", "1023.00 B", "f",
                        "1.00 KB", "f", "2048.00 TB", "f", "0.00 B", "f", "0.00 B", "f", "0.00 B"}));

        click(part(form, "pbCopyrightTasks"));
        QVERIFY(part(form, "copyrightTasksWidget")->isVisible() && !part(form, "mainWidget")->isVisible());
        const auto *requirements = part<MarkupBrowser>(form, "textRequirements");
        QCOMPARE(requirements->toPlainText(), s("Требования 1"));
        QCOMPARE(labelText(form, "lbSignNumber"), s("Количество знаков: 4000"));
        QCOMPARE(listed(form, "listKeywords"), texts({"фраза", "Точн. 3", "Неточн. 5"}));
        part<QComboBox>(form, "cbTexts")->setCurrentIndex(1);
        QCOMPARE(requirements->toPlainText(), s("Требования 2"));
        QCOMPARE(labelText(form, "lbUrl"), s("URL: file:///etc/passwd"));
        QCOMPARE(listed(form, "listKeywords"), QStringList());
    }

    void taskWithoutTexts()
    {
        const auto form = open();
        QVERIFY(form && QTest::qWaitForWindowActive(form.get(), TestClient::waitLimit));
        QTest::keyClick(form.get(), Qt::Key_2, Qt::AltModifier);
        // A key holds the button down for a moment.
        QTRY_VERIFY(part(form.get(), "copyrightTasksWidget")->isVisible());
        TaskInfo info = sample();
        info.texts.clear();
        form->updateTask(info);
        QVERIFY(!part(form.get(), "pbCopyrightTasks")->isEnabled());
        QCOMPARE(listed(form.get(), "listKeywords"), QStringList());
        // The page that has nothing left to show is left.
        QVERIFY(part(form.get(), "mainWidget")->isVisible());
    }

    void recordsThatArrive()
    {
        const auto form = open();
        QVERIFY(form);
        auto *texts = part<QComboBox>(form.get(), "cbTexts");
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
        QCOMPARE(labelText(form.get(), "lbTaskTitle"), sample().title);
        info.id = kTask;
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(labelText(form.get(), "lbTaskTitle"), info.title);
        QCOMPARE(texts->currentIndex(), 1);
        info.texts[1].text = s("Другие требования");
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(texts->currentIndex(), 0);
        QCOMPARE(part<MarkupBrowser>(form.get(), "textRequirements")->toPlainText(), s("Требования 1"));
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
