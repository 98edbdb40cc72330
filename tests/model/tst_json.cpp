#include "model/json.h"
#include "rows.h"

#include <limits>

using namespace QtJson;

namespace {

// With the types that a QVariant's own comparison does not look at.
QString show(const QVariant &value)
{
    QString text;
    QDebug(&text).noquote() << value;
    return text.remove(s("QVariant")).trimmed();
}

} // namespace

class TestJson final : public QObject
{
    Q_OBJECT

private slots:
    void reads_data()
    {
        // Syntax, and what is forgiven; an empty result: refused.
        addRows({{"  [1,2] garbage", "(List, ((uint, 1), (uint, 2)))"},
                 {"[1 2\"3\"]", "(List, ((uint, 1), (uint, 2), (QString, 3)))"},
                 {"[truefalsenull]", "(List, ((bool, true), (bool, false), (Invalid)))"},
                 {"{,\"a\":1,,}", "(Map, QMap((a, (uint, 1))))"},
                 {" \t\r\n{ \"b\" \n:\t[] \"a\":{}} ", "(Map, QMap((a, (Map, QMap()))(b, (List, ()))))"},
                 // Whatever begins a key is passed over as if it were the quote.
                 {"{1a\":1}", "(Map, QMap((a, (uint, 1))))"},
                 {"\"a\\qb\\u00e9\\u00E9\\ud83d\\ude00\"", "(QString, abéé😀)"},
                 {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\traw\"", "(QString, \"\\/\b\f\n\r\t\traw)"},
                 {"4294967296", "(qulonglong, 4294967296)"},
                 {"99999999999999999999", "(QString, 99999999999999999999)"},
                 {"-2147483649", "(qlonglong, -2147483649)"},
                 {"1.", "(double, 1)"},
                 {"1.2.3", "(double, 0)"},
                 {"1e3", "(QString, 1e3)"},
                 {"[1-2]", "(List, ((QString, 1-2)))"}});
        for (const char *text :
             {" \n",     "}",         ":",         ",1",        "[1,",     "[}",     "[:]",   "{\"a\"",
              "{\"a\":", "{\"a\":,}", "{\"a\" 1}", "{\"a\":1]", "{x\":1}", "tru",    "True",  "+1",
              ".5",      "'a'",       "//\n1",     "\f1",       "\u00a01", "\u0664", "\"a\\", "\"\\u12\""})
            QTest::newRow(text) << s(text) << QString();
    }

    void reads()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        bool success = result.isEmpty();
        QCOMPARE(show(parse(input, success)), result.isEmpty() ? s("(Invalid)") : result);
        QCOMPARE(success, !result.isEmpty());
        // No text at all is no error.
        QVERIFY(!parse(QString(), success).isValid() && success);
        QCOMPARE(parse(s("\"\\uzzzz\\ud83d\"")).toString(), QString(QString(QChar(0)) + QChar(0xd83d)));
    }

    void writes()
    {
        const QString a = s("a");
        const QVariantList values = QVariantList()
            << QVariant() << QVariantHash{{a, QVariantList{QVariantHash{{a, true}}}}}
            << QVariant(QVariantList{QVariantList{1}, QVariantMap(), QVariantList()})
            << QVariantMap{{s("b"), 1}, {a, QByteArray("байты")}, {s("\"\\\n"), false}}
            << s("/%1 \\ \" \b \f \n \r \t \\n 😀") << 2.0 << 1.0 / 3 << 1234567.0
            << std::numeric_limits<qulonglong>::max() << std::numeric_limits<qlonglong>::min()
            << QTime(12, 30, 5);
        const QByteArray text =
            "[null,{\"a\":[{\"a\":true}]},[[1],{},[]],{\"\\\"\\\\\\n\":false,\"a\":\"байты\",\"b\":1},"
            "\"/%1 \\\\ \\\" \\b \\f \\n \\r \\t \\\\n 😀\",2.0,0.333333,1.23457e+06,18446744073709551615,"
            "-9223372036854775808,\"12:30:05.000\"]";
        bool success = false;
        QCOMPARE(serialize(values, success, 3), text);
        QVERIFY(success);
        QCOMPARE(serializeStr(values).toUtf8(), text);
        const QVariant point = QPoint(1, 2);
        for (const QVariant &value : {point, QVariant(QVariantMap{{a, QVariantList{1, point}}})})
            QVERIFY(serialize(value, success, 0).isNull() && !success && serializeStr(value).isNull());
        // The day's format works only once the other one is set.
        setDateFormat(s("dd.MM.yy"));
        const QDateTime moment(QDate(2024, 3, 1), QTime(18, 5, 9));
        QVERIFY(serialize(moment.date()) != "\"01.03.24\"");
        setDateTimeFormat(s("yyyy/MM/dd HH:mm"));
        QCOMPARE(serialize(QVariantList{moment, moment.date(), QDateTime()}),
                 QByteArray("[\"2024/03/01 18:05\",\"01.03.24\",\"\"]"));
        setPrettySerialize(true);
        QCOMPARE(serialize(QVariantList{1}), QByteArray("[\n    1\n]"));
    }

    void changesAndClones()
    {
        const QString a = s("a");
        QVariant value = 5;
        insert(value, a, 1);
        insert(value, a, QVariantList());
        QCOMPARE(show(value), s("(Map, QMap((a, (Invalid))))"));
        append(value, 1);
        append(value, QVariantList());
        QCOMPARE(show(value), s("(List, ((int, 1), (List, ())))"));
        QCOMPARE(show(clone(QVariantList{QVariantMap()})), s("(List, ((Map, QMap())))"));
        QCOMPARE(show(clone(QVariantMap{{a, QVariantMap()}})), s("(Map, QMap((a, (Invalid))))"));
    }

    void builds()
    {
        QVariantMap start{{s("z"), 0}};
        BuilderJsonObject *inner = objectBuilder(start);
        BuilderJsonArray *list = arrayBuilder()->add(1)->add(inner)->add(arrayBuilder());
        // What is added to a part later does not reach the whole.
        inner->set(s("late"), true);
        const QVariantMap built = objectBuilder()->set(s("l"), list)->set(s("n"), 2)->create();
        QCOMPARE(built, QVariantMap({{s("l"), QVariantList{1, start, QVariantList()}}, {s("n"), 2}}));
        // The last ones go with the next of their kind.
        delete arrayBuilder();
        delete objectBuilder();
    }
};

QTEST_GUILESS_MAIN(TestJson)

#include "tst_json.moc"
