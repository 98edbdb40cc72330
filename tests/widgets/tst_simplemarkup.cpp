#include "rows.h"
#include "widgets/markupbrowser.h"
#include "widgets/tooltips.h"

#include <QTextBlock>
#include <QTextDocument>

class SimpleMarkupTest final : public QObject
{
    Q_OBJECT

private slots:
    void markup_data()
    {
        addColumns<QString, QString, QStringList>("text", "shown", "links");
        const auto row = [](const char *name, const char *text, const char *shown,
                            const QStringList &links = {}) {
            QTest::newRow(name) << s(text) << s(shown) << links;
        };
        const QString page = s("https://x.example/?a=1&b=2");
        row("no markup keeps its lines", "one\n  two\n\nthree", "one\n  two\n\nthree");
        row("signs that are no markup", "a < b, c > d & e <3 &amp;", "a < b, c > d & e <3 &amp;");
        row("paragraphs", "<p>a</p>\n<p>b<br>c</p>", "a\nb\u2028c");
        row("list", "<ul><li>a<li>b</ul>", "a\nb");
        row("table as lines", "<table><tr><td>a</td><td>b</td></tr><tr><td>c</td></tr></table>",
            "a b\u2028c");
        row("entities", "<b>&lt;i&gt; &amp; &unknown &quot;</b>", "<i> & &unknown \"");
        row("script and style", "<b>a</b><script>b<c</script><style>d{}</style>e", "ae");
        row("pictures and frames", "<b>a</b><img src='file:///x.png'><iframe src='http://x/'>b</iframe>c",
            "ac");
        row("comment", "<i>a</i><!-- <b> b --> c", "a c");
        row("unknown tag in markup", "<b>a</b> <list>", "a <list>");
        row("badly nested", "<b>a<i>b</b>c</i></p>d", "abcd");
        row("unended tag", "<b>a</b><b", "a<b");
        row("web link", "<a href='https://x.example/?a=1&amp;b=2'>a</a>", "a", {page});
        row("link without quotes", "<A HREF=https://x.example/?a=1&b=2 onclick=x>a</A>", "a", {page});
        row("script link", "<a href=\"javascript:alert(1)\">a</a>", "a");
        row("file link", "<a href='file:///etc/passwd'>a</a>", "a");
        row("link that breaks out", "<a href='https://x.example/\"><img src=x>'>a</a>", "a",
            {s("https://x.example/\"><img src=x>")});
        row("background picture", "<body background='http://x/y.png'><p style='font-size:900px'>a</p></body>",
            "a");
    }

    void markup()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        MarkupBrowser browser;
        browser.showText(text);
        QStringList links;
        for (QTextBlock block = browser.document()->begin(); block.isValid(); block = block.next()) {
            for (auto it = block.begin(); !it.atEnd(); ++it) {
                const QTextCharFormat format = it.fragment().charFormat();
                if (format.isAnchor())
                    links.append(format.anchorHref());
                QVERIFY(format.fontPointSize() < 100);
            }
        }
        // A picture would be one more character.
        QCOMPARE(browser.document()->toRawText().replace(QChar::ParagraphSeparator, QLatin1Char('\n')),
                 shown);
        QTEST(links, "links");
    }

    void toolTipsShowTheTextItself()
    {
        for (const QString &text : {s("Отчёт"), s("A & B &amp; C"), s("<b>x</b> & <img src=file:///x>"),
                                    s("&lt;b&gt;"), s("слово & ").repeated(40).trimmed()}) {
            const QString tip = literalToolTip(text);
            // What a tool tip does with its text.
            QTextDocument document;
            if (Qt::mightBeRichText(tip))
                document.setHtml(tip);
            else
                document.setPlainText(tip);
            QCOMPARE(document.toPlainText(), text);
        }
    }
};

QTEST_MAIN(SimpleMarkupTest)
#include "tst_simplemarkup.moc"
