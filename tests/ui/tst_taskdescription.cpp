#include "rows.h"
#include "ui/markupbrowser.h"
#include "ui/scrolltext.h"
#include "ui/taskdescriptionform.h"
#include "urlcatcher.h"
#include "windowbench.h"

#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTextBlock>
#include <QTextDocument>

namespace {

const QString kTask = s("1701");

TaskInfo sample()
{
    TaskInfo info;
    info.id = kTask;
    info.title = s("Отчёт & <b>план</b>");
    info.deadline = QDateTime(QDate(2024, 1, 31), QTime(18, 0));
    info.text = s("Строка 1\nСтрока 2");
    info.executorName = s("Анна");
    info.auditorName = s("<i>Мария</i>");
    info.files = {{s("1"), s("f1"), s("<b>план</b>.docx"), s("0")},
                  {s("2"), s("f2"), s("схема.png"), s("1048576")}};
    TextTask first;
    first.title = s("Первый");
    first.text = s("Требования 1");
    first.minCount = s("4000");
    first.page = QUrl(s("https://orvana.example/a?b=1&c=2"));
    first.keywords = {{s("1"), s("фраза"), s("3"), s("5")}};
    TextTask second = first;
    second.title = s("Второй");
    second.text = s("Требования 2");
    second.page = QUrl(s("file:///etc/passwd"));
    second.keywords.clear();
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
QStringList rowTexts(const QListWidget *list, int row)
{
    QStringList texts;
    const auto widgets = list->itemWidget(list->item(row))->findChildren<QWidget *>();
    for (const QWidget *widget : widgets) {
        const QString text = widget->property("text").toString();
        if (!text.isEmpty())
            texts.append(text);
    }
    return texts;
}

QString repeated(const char *piece, int times)
{
    return QString::fromLatin1(piece).repeated(times);
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

    void sizes_data()
    {
        addColumns<QString, QString>("bytes", "shown");
        const auto row = [](const char *bytes, const char *shown) {
            QTest::newRow(bytes) << QString::fromLatin1(bytes) << QString::fromLatin1(shown);
        };
        row("0", "0.00 B");
        row("100", "100.00 B");
        row("1023", "1023.00 B");
        row("1024", "1.00 KB");
        row("1536", "1.50 KB");
        row("1048576", "1.00 MB");
        row("1099511627776", "1.00 TB");
        row("2251799813685248", "2048.00 TB");
        row("many", "0.00 B");
        row("inf", "0.00 B");
        row("nan", "0.00 B");
    }

    void sizes()
    {
        QFETCH(QString, bytes);
        QTEST(TaskDescriptionForm::size_human(bytes.toFloat()), "shown");
    }

    void hugeMarkupIsShown_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("nested tables") << repeated("<table><tr><td>", 7000);
        QTest::newRow("nested lists") << repeated("<ul><li>x", 7000);
        QTest::newRow("items") << QString(s("<ol>") + repeated("<li>x", 15000));
        QTest::newRow("one word") << repeated("x", 100000);
        QTest::newRow("unended tags") << repeated("<b \"", 30000);
        QTest::newRow("entities") << QString(s("<b>") + repeated("&lt;", 30000));
        QTest::newRow("a hundred kilobytes") << repeated("word <i>text</i> ", 6000);
    }

    // The text engine by itself crashes on the first and takes seconds for others;
    // the time limit of the suite would tell.
    void hugeMarkupIsShown()
    {
        QFETCH(QString, text);
        TaskInfo info = sample();
        info.text = text + s("<p>end");
        const auto form = open(info);
        QVERIFY(form);
        QVERIFY(!part<MarkupBrowser>(*form, "textTask")->document()->isEmpty());
    }

    void nothingIsLoaded()
    {
        TaskInfo info = sample();
        const QString picture = m_client->server.baseUrl() + s("/picture.png");
        info.text = s("<b>x</b><img src=\"") + picture + s("\">");
        const auto form = open(info);
        QVERIFY(form);
        auto *browser = part<MarkupBrowser>(*form, "textTask");
        // Also past the filter: a document asks its browser for what it names.
        browser->setHtml(s("<link rel=stylesheet href='") + picture
                         + s("'><img src='file:///proc/self/exe'><img src='") + picture + s("'>"));
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
        addColumns<QString, bool>("address", "opens");
        QTest::newRow("https") << s("https://orvana.example/a?b=1&c=2") << true;
        QTest::newRow("http") << s("http://orvana.example/a%20b") << true;
        QTest::newRow("file") << s("file:///etc/passwd") << false;
        QTest::newRow("javascript") << s("javascript:alert(1)") << false;
        QTest::newRow("data") << s("data:text/html,x") << false;
    }

    void links()
    {
        QFETCH(QString, address);
        QFETCH(bool, opens);
        UrlCatcher catcher;
        TaskInfo info = sample();
        info.text = s("<p><a href=\"") + address.toHtmlEscaped() + s("\">link link</a></p>");
        info.texts[0].page = QUrl(address);
        const auto form = open(info);
        QVERIFY(form);
        auto *browser = part<MarkupBrowser>(*form, "textTask");
        const QPoint link = firstLink(*browser);
        QCOMPARE(!link.isNull(), opens);
        if (opens) {
            QTest::mouseClick(browser->viewport(), Qt::LeftButton, Qt::NoModifier, link);
            QCOMPARE(catcher.opened.size(), 1);
        }
        // A text that got past the filter opens nothing more.
        emit browser->anchorClicked(QUrl(address));
        QCOMPARE(catcher.opened.size(), opens ? 2 : 0);
        QCOMPARE(browser->source(), QUrl());

        QTest::mouseClick(part<QPushButton>(*form, "pbCopyrightTasks"), Qt::LeftButton);
        auto *url = part<QLabel>(*form, "lbUrl");
        QCOMPARE(url->text().contains(QLatin1String("<a href")), opens);
        QTest::mouseClick(url, Qt::LeftButton, Qt::NoModifier, QPoint(60, url->height() / 2));
        QCOMPARE(catcher.opened.size(), opens ? 3 : 0);
        part<QListWidget>(*form, "listKeywords")->setFocus();
        QTest::keyClick(form->focusWidget(), Qt::Key_Tab);
        QCOMPARE(form->focusWidget(), url);
        QTest::keyClick(url, Qt::Key_Tab);
        QTest::keyClick(form->focusWidget(), Qt::Key_Return);
        QCOMPARE(catcher.opened.size(), opens ? 4 : 0);
        for (const QString &opened : qAsConst(catcher.opened))
            QCOMPARE(QUrl(opened), QUrl(address));
    }

    void showsARecord()
    {
        const TaskInfo info = sample();
        const auto form = open(info);
        QVERIFY(form);
        QCOMPARE(part<ScrollText>(*form, "lbTaskLine")->text(), info.title);
        QCOMPARE(labelText(*form, "lbTaskTitle"), info.title);
        QCOMPARE(part<QLabel>(*form, "lbTaskTitle")->textFormat(), Qt::PlainText);
        QCOMPARE(labelText(*form, "lbTaskDeadline"), s("Истекает: 2024-01-31 18:00:00"));
        QCOMPARE(labelText(*form, "lbResponsible"), s("Ответственные:Анна, <i>Мария</i>"));
        QCOMPARE(part<QLabel>(*form, "lbResponsible")->textFormat(), Qt::PlainText);
        QCOMPARE(part<MarkupBrowser>(*form, "textTask")->toPlainText(), info.text);

        QCOMPARE(labelText(*form, "lbAttachmentsNumber"), s("2"));
        const auto *files = part<QListWidget>(*form, "listAttachments");
        QCOMPARE(files->count(), 2);
        QCOMPARE(rowTexts(files, 0), (QStringList{s("<b>план</b>.docx"), s("0.00 B")}));
        QCOMPARE(rowTexts(files, 1), (QStringList{s("схема.png"), s("1.00 MB")}));
        QCOMPARE(files->itemWidget(files->item(0))->height(), 23);

        QVERIFY(!part<QWidget>(*form, "copyrightTasksWidget")->isVisible());
        QTest::mouseClick(part<QPushButton>(*form, "pbCopyrightTasks"), Qt::LeftButton);
        QVERIFY(part<QWidget>(*form, "copyrightTasksWidget")->isVisible());
        QVERIFY(!part<QWidget>(*form, "mainWidget")->isVisible());
        auto *texts = part<QComboBox>(*form, "cbTexts");
        QCOMPARE(texts->count(), 2);
        QCOMPARE(texts->itemData(1).value<TextTask>().text, info.texts.at(1).text);
        QCOMPARE(part<MarkupBrowser>(*form, "textRequirements")->toPlainText(), s("Требования 1"));
        QCOMPARE(labelText(*form, "lbSignNumber"), s("Количество знаков: 4000"));
        const QString page = s("https://orvana.example/a?b=1&amp;c=2");
        QCOMPARE(labelText(*form, "lbUrl"),
                 QString(s("URL: <a href=\"") + page + s("\" style=\"color:rgb(100,100,100)\">") + page
                         + s("</a>")));
        const auto *phrases = part<QListWidget>(*form, "listKeywords");
        QCOMPARE(phrases->count(), 1);
        QCOMPARE(rowTexts(phrases, 0), (QStringList{s("фраза"), s("Точн. 3"), s("Неточн. 5")}));

        texts->setCurrentIndex(1);
        QCOMPARE(part<MarkupBrowser>(*form, "textRequirements")->toPlainText(), s("Требования 2"));
        QCOMPARE(labelText(*form, "lbUrl"), s("URL: file:///etc/passwd"));
        QCOMPARE(phrases->count(), 0);
    }

    void manyRowsFollow()
    {
        constexpr int many = 500;
        TaskInfo info = sample();
        info.files.clear();
        for (int i = 0; i < many; ++i)
            info.files.append({QString::number(i), QString::number(i), QString(), QString::number(i)});
        const auto form = open(info);
        QVERIFY(form);
        const auto *list = part<QListWidget>(*form, "listAttachments");
        QCOMPARE(list->count(), many);
        QTRY_VERIFY(list->itemWidget(list->item(many - 1)));
        for (const int row : {0, many / 2, many - 1})
            QCOMPARE(rowTexts(list, row).first(), QString::number(row));
        // A shorter list comes while a longer one is still being built.
        info.files.append(info.files);
        form->updateTask(info);
        form->updateTask(sample());
        QCoreApplication::processEvents();
        QCOMPARE(list->count(), 2);
        QCOMPARE(rowTexts(list, 1).last(), s("1.00 MB"));
    }

    void taskWithoutTexts()
    {
        const auto form = open();
        QVERIFY(form);
        QVERIFY(QTest::qWaitForWindowActive(form.get(), TestClient::waitLimit));
        QTest::keyClick(form.get(), Qt::Key_2, Qt::AltModifier);
        // A key holds the button down for a moment.
        QTRY_VERIFY(part<QWidget>(*form, "copyrightTasksWidget")->isVisible());
        TaskInfo info = sample();
        info.texts.clear();
        info.files.clear();
        info.deadline = QDateTime();
        form->updateTask(info);
        QVERIFY(!part<QPushButton>(*form, "pbCopyrightTasks")->isEnabled());
        QCOMPARE(part<QComboBox>(*form, "cbTexts")->count(), 0);
        QCOMPARE(part<QListWidget>(*form, "listKeywords")->count(), 0);
        QCOMPARE(labelText(*form, "lbAttachmentsNumber"), s("0"));
        QCOMPARE(labelText(*form, "lbTaskDeadline"), QString());
        // The page that has nothing left to show is left.
        QVERIFY(part<QWidget>(*form, "mainWidget")->isVisible());
    }

    void recordsOfOthers_data()
    {
        QTest::addColumn<TaskInfo>("record");
        TaskInfo other = sample();
        other.id = s("1702");
        other.title = s("Другая");
        QTest::newRow("another task") << other;
        QTest::newRow("empty, after a failed request") << TaskInfo();
    }

    void recordsOfOthers()
    {
        QFETCH(TaskInfo, record);
        const auto form = open();
        QVERIFY(form);
        emit m_client->orvana->taskInfoUpdated(record);
        QCOMPARE(labelText(*form, "lbTaskTitle"), sample().title);
        QCOMPARE(part<QListWidget>(*form, "listAttachments")->count(), 2);
    }

    void sameRecordKeepsTheChosenText()
    {
        const auto form = open();
        QVERIFY(form);
        auto *texts = part<QComboBox>(*form, "cbTexts");
        texts->setCurrentIndex(1);
        TaskInfo info = sample();
        info.title = s("Новое название");
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(labelText(*form, "lbTaskTitle"), info.title);
        QCOMPARE(texts->currentIndex(), 1);
        info.texts[1].text = s("Другие требования");
        emit m_client->orvana->taskInfoUpdated(info);
        QCOMPARE(texts->currentIndex(), 0);
        QCOMPARE(part<MarkupBrowser>(*form, "textRequirements")->toPlainText(), s("Требования 1"));
    }

    void refreshesThroughTheService()
    {
        const auto form = open();
        QVERIFY(form);
        m_client->server.edit(
            [](localservice::World &world) { world.task(kTask)->title = s("Название со службы"); });
        form->requestUpdateTask(kTask);
        QTRY_COMPARE(labelText(*form, "lbTaskTitle"), s("Название со службы"));
    }

    void offlineRedrawsWithoutARequest()
    {
        const auto form = open();
        QVERIFY(form);
        TaskInfo info = sample();
        info.title = s("Из сессии");
        m_client->session()->addTaskInfoData(kTask, info);
        m_client->session()->setOnline(false);
        const auto requests = [this] {
            const auto all = m_client->server.requestsTo(s("/api_get_task"));
            return std::count_if(all.begin(), all.end(), [](const localservice::RecordedRequest &request) {
                return request.queryValue(s("task_id")) == kTask;
            });
        };
        const auto before = requests();
        form->requestUpdateTask(kTask);
        QCOMPARE(labelText(*form, "lbTaskTitle"), info.title);
        QSignalSpy updated(m_client->session(), &Orvana::Session::teamsUpdated);
        m_client->orvana->requestTeamsAndTasks();
        QVERIFY(updated.wait(TestClient::waitLimit));
        QCOMPARE(requests(), before);
        m_client->session()->setOnline(true);
    }

    void hidingTogether_data()
    {
        addColumns<QString, bool>("steps", "visible");
        // h, s: all windows are hidden, shown; e: Esc; b: its button; o: opened by hand.
        QTest::newRow("hidden") << s("h") << false;
        QTest::newRow("comes back") << s("hs") << true;
        QTest::newRow("hidden twice") << s("hhs") << true;
        QTest::newRow("closed by hand") << s("bhs") << false;
        QTest::newRow("closed by key") << s("ehs") << false;
        QTest::newRow("closed after it came back") << s("hsbs") << false;
        QTest::newRow("opened and closed meanwhile") << s("hobs") << false;
    }

    void hidingTogether()
    {
        QFETCH(QString, steps);
        const auto form = open();
        QVERIFY(form);
        for (const QChar step : qAsConst(steps)) {
            switch (step.unicode()) {
            case 'h':
                form->hideAll();
                break;
            case 's':
                form->showAll();
                break;
            case 'e':
                QTest::keyClick(form.get(), Qt::Key_Escape);
                break;
            case 'b':
                QTest::mouseClick(part<QPushButton>(*form, "pbHide"), Qt::LeftButton);
                break;
            default:
                form->show();
            }
        }
        QTEST(form->isVisible(), "visible");
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
