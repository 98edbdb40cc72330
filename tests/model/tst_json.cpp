#include "model/json.h"
#include "rows.h"

#include <limits>

using namespace QtJson;

namespace {

// With the types that a QVariant's own comparison does not look at.
QString show(const QVariant &value)
{
    QStringList parts;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return s("null");
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        std::transform(list.cbegin(), list.cend(), std::back_inserter(parts), show);
        return QLatin1Char('[') + parts.join(QLatin1Char(' ')) + QLatin1Char(']');
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            parts.append(it.key() + QLatin1Char('=') + show(it.value()));
        return QLatin1Char('{') + parts.join(QLatin1Char(' ')) + QLatin1Char('}');
    }
    case QMetaType::QString:
        return QLatin1Char('\'') + value.toString() + QLatin1Char('\'');
    default:
        return QLatin1String(value.typeName()) + QLatin1Char(' ') + value.toString();
    }
}

} // namespace

class TestJson final : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        setDateFormat(QString());
        setDateTimeFormat(QString());
        setPrettySerialize(false);
    }

    void reads_data()
    {
        // Syntax, and what is forgiven.
        addRows({{"  [1,2] garbage", "[uint 1 uint 2]"},
                 {"[1 2\"3\"]", "[uint 1 uint 2 '3']"},
                 {"[truefalsenull]", "[bool true bool false null]"},
                 {"null", "null"},
                 {"{,\"a\":1,,}", "{a=uint 1}"},
                 {"{\"a\":1,\"a\":2}", "{a=uint 2}"},
                 {" \t\r\n{ \"b\" \n:\t[] \"a\":{}} ", "{a={} b=[]}"},
                 // Whatever begins a key is passed over as if it were the quote.
                 {"{1a\":1}", "{a=uint 1}"},
                 {"\"a\\qb\"", "'ab'"},
                 {"\"\\u00e9\\u00E9\\ud83d\\ude00\"", "'éé😀'"},
                 {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "'\"\\/\b\f\n\r\t'"},
                 {"\"raw\ttab\nкириллица\"", "'raw\ttab\nкириллица'"},
                 {"4294967296", "qulonglong 4294967296"},
                 {"18446744073709551615", "qulonglong 18446744073709551615"},
                 {"99999999999999999999", "'99999999999999999999'"},
                 {"-2147483649", "qlonglong -2147483649"},
                 {"-9223372036854775809", "'-9223372036854775809'"},
                 {"1.", "double 1"},
                 {"1.2.3", "double 0"},
                 {"1e3", "'1e3'"},
                 {"[1-2]", "['1-2']"},
                 {"-", "'-'"}});
        for (const char *text :
             {"",          " \n",     "}",       "]",      ":",       ",1",       "[",         "[1,",
              "[}",        "[:]",     "{",       "{\"a\"", "{\"a\":", "{\"a\":1", "{\"a\":,}", "{\"a\" 1}",
              "{\"a\":1]", "{x\":1}", "tru",     "True",   "fals",    "+1",       ".5",        "'a'",
              "//\n1",     "\f1",     "\u00a01", "\u0664", "\"a",     "\"a\\",    "\"\\u12\""})
            QTest::newRow(text) << QString::fromUtf8(text) << QString();
    }

    void reads()
    {
        QFETCH(QString, input);
        QFETCH(QString, result); // empty: refused
        bool success = result.isEmpty();
        const QVariant value = parse(input, success);
        QCOMPARE(success, !result.isEmpty());
        QCOMPARE(show(value), success ? result : s("null"));
        QCOMPARE(show(parse(input)), show(value));
        // What can be read can be written, and read again.
        for (const bool isPretty : {false, true}) {
            setPrettySerialize(isPretty);
            QCOMPARE(show(parse(serializeStr(value))), show(value));
        }
        // No text at all is no error.
        QVERIFY(!parse(QString(), success).isValid());
        QVERIFY(success);
        QCOMPARE(show(parse(s("\"\\uzzzz\\ud83d\""))),
                 QString(QLatin1Char('\'') + QChar(0) + QChar(0xd83d) + QLatin1Char('\'')));
    }

    void boundsNesting()
    {
        for (const char *pair : {"[1]", "{\"a\":1}"}) {
            const QString whole = s(pair);
            const QString opening = whole.section(QLatin1Char('1'), 0, 0);
            for (const int depth : {1000, 1001, 100000}) {
                bool success = false;
                parse(opening.repeated(depth) + QLatin1Char('1') + whole.right(1).repeated(depth), success);
                QCOMPARE(success, depth <= 1000);
                // Only what is open at the same time counts.
                parse(QLatin1Char('[') + whole.repeated(depth) + QLatin1Char(']'), success);
                QVERIFY(success);
            }
        }
    }

    void writes_data()
    {
        addColumns<QVariant, QByteArray>("value", "text");
        const auto row = [](const char *text, const QVariant &value) {
            QTest::addRow("%s %s", text, value.typeName()) << value << QByteArray(text);
        };
        const QString a = s("a");
        const QString b = s("b");
        row("null", QVariant());
        row("{}", QVariantHash());
        row("[null,[1],{},[]]", QVariantList{QVariant(), QVariantList{1}, QVariantMap(), QVariantList()});
        row("{\"a\":true,\"b\":1}", QVariantMap{{b, 1}, {a, true}});
        row("{\"b\":[{\"b\":\"a\"}]}", QVariantHash{{b, QVariantList{QVariantHash{{b, a}}}}});
        row("{\"\\\"\\\\\\n\":false}", QVariantMap{{s("\"\\\n"), false}});
        row("\"a/b\001%1\"", s("a/b\u0001%1"));
        row("\"\\\\ \\\" \\b \\f \\n \\r \\t \\\\n\"", s("\\ \" \b \f \n \r \t \\n"));
        row("\"Дедлайн 😀\"", s("Дедлайн 😀"));
        row("\"байты\"", QByteArray("байты"));
        row("2.0", 2.0);
        row("0.333333", 1.0 / 3);
        row("100000.0", 100000.0);
        row("1.23457e+06", 1234567.0);
        row("-inf.0", -std::numeric_limits<double>::infinity());
        row("18446744073709551615", std::numeric_limits<qulonglong>::max());
        row("-9223372036854775808", std::numeric_limits<qlonglong>::min());
        row("-7", QVariant::fromValue(short(-7)));
        row("\"12:30:05.000\"", QTime(12, 30, 5));
    }

    void writes()
    {
        QFETCH(QVariant, value);
        bool success = false;
        QTEST(serialize(value, success, 3), "text");
        QVERIFY(success);
        QTEST(serializeStr(value).toUtf8(), "text");
    }

    void writesDates()
    {
        const QDateTime moment(QDate(2024, 3, 1), QTime(18, 5, 9));
        // Qt's text form speaks the language of the locale.
        if (QLocale::system().language() == QLocale::Russian)
            QCOMPARE(serialize(moment), QByteArray("\"пт мар. 1 18:05:09 2024\""));
        // The day's format works only once the other one is set.
        setDateFormat(s("dd.MM.yy"));
        QVERIFY(serialize(moment.date()) != "\"01.03.24\"");
        setDateTimeFormat(s("yyyy/MM/dd HH:mm"));
        QCOMPARE(serialize(QVariantList{moment, moment.date(), QDateTime()}),
                 QByteArray("[\"2024/03/01 18:05\",\"01.03.24\",\"\"]"));
    }

    void refusesToWrite()
    {
        const QVariant point = QPoint(1, 2);
        for (const QVariant &value : {point, QVariant(QVariantMap{{s("k"), QVariantList{1, point}}}),
                                      QVariant(QVariantHash{{s("k"), point}})}) {
            bool success = true;
            QVERIFY(serialize(value, success, 0).isNull() && !success);
            QVERIFY(serializeStr(value, success).isNull() && !success);
        }
    }

    void changesAndClones()
    {
        const QString a = s("a");
        QVariant v = 5;
        insert(v, a, 1);
        insert(v, s("b"), QVariantList());
        insert(v, a, 2);
        QCOMPARE(show(v), s("{a=int 2 b=null}"));
        append(v, 1);
        append(v, QVariantList());
        QCOMPARE(show(v), s("[int 1 []]"));
        v = QStringList{a};
        append(v, s("b"));
        QCOMPARE(show(v), s("['a' 'b']"));
        QCOMPARE(show(clone(QVariantHash{{a, QVariantHash{{a, 1}}}})), s("{a={a=int 1}}"));
        // A list takes over its elements as they are, a map clones them.
        QCOMPARE(show(clone(QVariantList{QVariantMap()})), s("[{}]"));
        QCOMPARE(show(clone(QVariantMap{{a, QVariantMap()}})), s("{a=null}"));
    }

    void builds()
    {
        QVariantMap start{{s("z"), 0}};
        BuilderJsonObject *inner = objectBuilder(start);
        BuilderJsonArray *list = arrayBuilder()->add(1)->add(inner)->add(arrayBuilder());
        // What is added to a part later does not reach the whole.
        inner->set(s("late"), true);
        const QVariantMap built = objectBuilder()->set(s("l"), list)->set(s("n"), 2)->create();
        QCOMPARE(serialize(built), QByteArray("{\"l\":[1,{\"z\":0},[]],\"n\":2}"));
        setPrettySerialize(true);
        QCOMPARE(serialize(QVariantList{1}), QByteArray("[\n    1\n]"));
        // The last ones go with the next of their kind.
        delete arrayBuilder();
        delete objectBuilder();
    }
};

QTEST_GUILESS_MAIN(TestJson)

#include "tst_json.moc"
