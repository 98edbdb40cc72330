#include "ui/descriptionrows.h"
#include "ui/taskdescriptionform.h"
#include "urlcatcher.h"
#include "widgets/markupbrowser.h"
#include "widgets/tooltips.h"
#include "windowbench.h"

namespace {

const QString kTask = s("1701");

TaskInfo sample()
{
    TextTask first;
    first.text = s("Требования 1");
    first.keywords = {{s("1"), s("фраза"), s("3"), s("5")}};
    TextTask second;
    second.text = s("Требования 2");
    TaskInfo info;
    info.id = kTask;
    info.title = s("Отчёт & <b>план</b>");
    info.deadline = QDateTime(QDate(2024, 1, 31), QTime(18, 0));
    info.text = s("Строка 1\nСтрока 2");
    info.executorName = s("Анна");
    info.auditorName = s("<i>Мария</i>");
    info.files = {{QString(), QString(), s("<b>f</b>"), s("many")}};
    info.texts = {first, second};
    return info;
}

// Calls the function with each link of the text and a place in it.
template <typename Function>
void forEachLink(const QTextDocument *document, Function call)
{
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            QTextCursor cursor(block);
            cursor.setPosition(it.fragment().position() + 1);
            if (it.fragment().charFormat().isAnchor())
                call(it.fragment().charFormat().anchorHref(), cursor);
        }
    }
}

} // namespace

class TestTaskDescription final : public QObject
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

    // The result is the text that is shown, and its links.
    void markup_data()
    {
        addRows({{"one\n  two\n\nthree", "one\n  two\n\nthree"},
                 {"a < b, c > d & e <3 &amp;", "a < b, c > d & e <3 &amp;"},
                 {"<p>a</p>\n<p>b<br>c</p>", "a\nb\u2028c"},
                 {"<ul><li>a<li>b</ul>", "a\nb"},
                 {"<table><tr><td>a</td><td>b</td></tr><tr><td>c</td></tr></table>", "a b\u2028c"},
                 {"<b>&lt;i&gt; &amp; &unknown &quot;</b>", "<i> & &unknown \""},
                 {"<b>a</b><script>b<c</script><style>d{}</style>e", "ae"},
                 {"<b>a</b><img src='file:///x.png'><iframe src='http://x/'>b</iframe>c", "ac"},
                 {"<i>a</i><!-- <b> b --> c", "a c"},
                 {"<b>a</b> <list>", "a <list>"},
                 {"<b>a</b><b", "a<b"},
                 {"<a href='https://x.example/?a=1&amp;b=2'>a</a>", "a https://x.example/?a=1&b=2"},
                 {"<A HREF=http://x.example/?a=1&b=2 onclick=x>a</A>", "a http://x.example/?a=1&b=2"},
                 {"<a href=\"javascript:alert(1)\">a</a>", "a"},
                 {"<a href='http://x.example/\"><img src=x>'>a</a>", "a http://x.example/\"><img src=x>"}});
    }

    void markup()
    {
        QFETCH(QString, input);
        MarkupBrowser browser;
        browser.showText(input);
        // A picture would be one more character.
        QString shown = browser.document()->toRawText();
        shown.replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
        forEachLink(browser.document(),
                    [&shown](const QString &link, const QTextCursor &) { shown += QLatin1Char(' ') + link; });
        QTEST(shown, "result");
        // A tool tip shows the text itself.
        const QString tip = literalToolTip(input);
        const QString plain =
            Qt::mightBeRichText(tip) ? QTextDocumentFragment::fromHtml(tip).toPlainText() : tip;
        QCOMPARE(plain.simplified(), input.simplified());
    }

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
            open(info);
            QVERIFY(!part<MarkupBrowser>(m_form.get(), "textTask")->document()->isEmpty());
        }
    }

    // Also past the filter: a document asks its browser for what it names.
    void nothingIsLoaded()
    {
        const QString picture = m_client->server.baseUrl() + s("/picture.png");
        MarkupBrowser browser;
        browser.setHtml(s("<link rel=stylesheet href='%1'><img src='%1'>").arg(picture));
        for (const QString &url : {picture, s("file:///proc/self/exe"), s("qrc:/images/main.png")}) {
            const QVariant loaded = browser.document()->resource(QTextDocument::ImageResource, QUrl(url));
            QVERIFY(loaded.toByteArray().isEmpty() && loaded.value<QImage>().isNull());
        }
    }

    void links_data()
    {
        // The result is what opens; nothing but web pages does.
        addRows({{"https://orvana.example/a?b=1&c=2", "https://orvana.example/a?b=1&c=2"},
                 {"orvana.example/a b?c=\"1\"&d=2", "http://orvana.example/a%20b?c=%221%22&d=2"},
                 {"orvana.example:8080/x", "http://orvana.example:8080/x"},
                 {"//intranet/x", "http://intranet/x"},
                 {"mailto:a@orvana.example", ""},
                 {"/etc/passwd", ""},
                 {"см. orvana.example", ""},
                 {"", ""},
                 {"file:///etc/passwd", ""},
                 {"javascript:alert(1)", ""}});
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
        open(info);
        auto *browser = part<MarkupBrowser>(m_form.get(), "textTask");
        forEachLink(browser->document(), [browser](const QString &, const QTextCursor &place) {
            QTest::mouseClick(browser->viewport(), Qt::LeftButton, {}, browser->cursorRect(place).center());
        });
        // A text that got past the filter opens nothing more.
        emit browser->anchorClicked(QUrl(opens ? result : input));
        click(part(m_form.get(), "pbCopyrightTasks"));
        auto *url = part<QLabel>(m_form.get(), "lbUrl");
        QTest::mouseClick(url, Qt::LeftButton, {}, QPoint(60, url->height() / 2));
        part(m_form.get(), "listKeywords")->setFocus();
        QTest::keyClick(m_form->focusWidget(), Qt::Key_Tab);
        QCOMPARE(m_form->focusWidget() == url, opens); // without a link there is nothing to do there
        press(url);
        QTRY_COMPARE(catcher.opened.size(), opens ? 4 : 0);
        for (const QString &opened : catcher.opened)
            QCOMPARE(QUrl(opened), QUrl(result));
    }

    void showsARecord()
    {
        open();
        QCOMPARE(shown("lbTaskTitle"), sample().title);
        QCOMPARE(shown("lbTaskDeadline"), s("Истекает: 2024-01-31 18:00:00"));
        QCOMPARE(shown("lbResponsible"), s("Ответственные:Анна, <i>Мария</i>"));
        QCOMPARE(part<QLabel>(m_form.get(), "lbTaskTitle")->textFormat(), Qt::PlainText);
        QCOMPARE(shown("textTask"), sample().text);
        QCOMPARE(shown("lbAttachmentsNumber"), s("1"));
        QCOMPARE(inFirstRow("listAttachments", Qt::DisplayRole), s("<b>f</b>"));
        QCOMPARE(inFirstRow("listAttachments", SizeRole), s("0.00 B"));
        QCOMPARE(sizeText(1023), s("1023.00 B"));
        QCOMPARE(sizeText(1024), s("1.00 KB"));
        QCOMPARE(sizeText(2251799813685248), s("2048.00 TB"));
        QCOMPARE(sizeText(std::numeric_limits<float>::infinity()), s("0.00 B"));
        QTest::keyClick(m_form.get(), Qt::Key_2, Qt::AltModifier);
        // A key holds the button down for a moment.
        QTRY_VERIFY(part(m_form.get(), "copyrightTasksWidget")->isVisible());
        QVERIFY(!part(m_form.get(), "mainWidget")->isVisible());
        QCOMPARE(shown("textRequirements"), s("Требования 1"));
        QCOMPARE(inFirstRow("listKeywords", ExactRole), s("Точн. 3"));
        QCOMPARE(inFirstRow("listKeywords", InexactRole), s("Неточн. 5"));
        part<QComboBox>(m_form.get(), "cbTexts")->setCurrentIndex(1);
        QCOMPARE(shown("textRequirements"), s("Требования 2"));
        // The page that has nothing left to show is left.
        TaskInfo info = sample();
        info.texts.clear();
        m_form->updateTask(info);
        QVERIFY(part(m_form.get(), "mainWidget")->isVisible());
    }

    void recordsThatArrive()
    {
        open();
        auto *texts = part<QComboBox>(m_form.get(), "cbTexts");
        texts->setCurrentIndex(1);
        // Of another task, and after a failed request.
        TaskInfo info = sample();
        info.id = s("1702");
        info.title = s("Другая");
        for (const TaskInfo &record : {info, TaskInfo()})
            emit m_client->orvana->taskInfoUpdated(record);
        QCOMPARE(shown("lbTaskTitle"), sample().title);
        info.id = kTask;
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(shown("lbTaskTitle"), info.title);
        QCOMPARE(texts->currentIndex(), 1);
    }

private:
    QString shown(const char *name) const
    {
        const auto *browser = part<MarkupBrowser>(m_form.get(), name);
        return browser ? browser->toPlainText() : part<QLabel>(m_form.get(), name)->text();
    }
    QString inFirstRow(const char *list, int role) const
    {
        return part<QListView>(m_form.get(), list)->model()->index(0, 0).data(role).toString();
    }
    void open(const TaskInfo &info = sample())
    {
        m_client->session()->addTaskInfoData(kTask, info);
        m_form = std::make_unique<TaskDescriptionForm>(kTask, m_client->orvana.get(), nullptr);
        m_form->show();
        QVERIFY(QTest::qWaitForWindowActive(m_form.get(), TestClient::waitLimit));
    }

    std::unique_ptr<TestClient> m_client;
    std::unique_ptr<TaskDescriptionForm> m_form;
};

QTEST_MAIN(TestTaskDescription)
#include "tst_taskdescription.moc"
