#include "model/json.h"
#include "rows.h"

#include <QDateTime>
#include <QPoint>

#include <limits>

using namespace QtJson;

namespace {

// One of everything that the service sends.
const QString kSample = QStringLiteral(
    "[ "
    "{\"id\":\"1\",\"name\":\"\\u041a\\\"\\\\\\/\\b\\f\\n\\r\\t\",\"on\":true,\"off\":false,\"none\":null,\n"
    "\t\"tasks\":[{\"id\":17,\"n\":-5,\"big\":4294967296,\"d\":1.5e1,\"e\":1e5,\"t\":[[],{},[1,,2,]]}]},,"
    "\r\n ]");

// With the types that a QVariant's own comparison does not look at.
QString show(const QVariant &value)
{
    QStringList parts;
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("null");
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
    void cleanup();
    void reads_data();
    void reads();
    void boundsNesting();
    void survivesDamage();
    void writes_data();
    void writes();
    void writesDates();
    void writesPretty();
    void refusesToWrite();
    void clones_data();
    void clones();
    void insertsAndAppends();
    void builds();
};

void TestJson::cleanup()
{
    setDateFormat(QString());
    setDateTimeFormat(QString());
    setPrettySerialize(false);
}

void TestJson::reads_data()
{
    // Syntax, and what is forgiven.
    addRows({{"  [1,2] garbage", "[uint 1 uint 2]"},
             {"[1,,2,]", "[uint 1 uint 2]"},
             {"[,,]", "[]"},
             {"[1 2\"3\"]", "[uint 1 uint 2 '3']"},
             {"[truefalsenull]", "[bool true bool false null]"},
             {"trueX", "bool true"},
             {"null", "null"},
             {"{,}", "{}"},
             {"{,\"a\":1,,}", "{a=uint 1}"},
             {"{\"a\":1,\"a\":2}", "{a=uint 2}"},
             {" \t\r\n{ \"b\" \n:\t[] \"a\":{}} ", "{a={} b=[]}"},
             // Whatever begins a key is passed over as if it were the quote.
             {"{1a\":1}", "{a=uint 1}"},
             {"{[a\":1}", "{a=uint 1}"},
             {"{\"\":1}", "{=uint 1}"},
             {"\"\"", "''"},
             {"\"a\\qb\"", "'ab'"},
             {"\"\\u00e9\\u00E9\\ud83d\\ude00\"", "'éé😀'"},
             {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "'\"\\/\b\f\n\r\t'"},
             {"\"raw\ttab\nкириллица\"", "'raw\ttab\nкириллица'"},
             // Types of numbers.
             {"007", "uint 7"},
             {"4294967295", "uint 4294967295"},
             {"4294967296", "qulonglong 4294967296"},
             {"18446744073709551615", "qulonglong 18446744073709551615"},
             {"99999999999999999999", "'99999999999999999999'"},
             {"-0", "int 0"},
             {"-2147483648", "int -2147483648"},
             {"-2147483649", "qlonglong -2147483649"},
             {"-9223372036854775808", "qlonglong -9223372036854775808"},
             {"-9223372036854775809", "'-9223372036854775809'"},
             {"1.0", "double 1"},
             {"1.", "double 1"},
             {"-2.5e-1", "double -0.25"},
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

void TestJson::reads()
{
    QFETCH(QString, input);
    QFETCH(QString, result); // empty: refused
    bool success = result.isEmpty();
    const QVariant value = parse(input, success);
    QCOMPARE(success, !result.isEmpty());
    QCOMPARE(show(value), success ? result : QStringLiteral("null"));
    QCOMPARE(show(parse(input)), show(value));
    // No text at all is no error.
    QVERIFY(!parse(QString(), success).isValid());
    QVERIFY(success);
    QCOMPARE(show(parse(QStringLiteral("\"\\uzzzz\\ud83d\""))),
             QString(QLatin1Char('\'') + QChar(0) + QChar(0xd83d) + QLatin1Char('\'')));
}

void TestJson::boundsNesting()
{
    for (const char *pair : {"[]", "{\"a\":}"}) {
        const QString opening = QString::fromLatin1(pair).chopped(1);
        const QString closing = QString::fromLatin1(pair).right(1);
        for (const int depth : {1000, 1001, 100000}) {
            bool success = false;
            parse(opening.repeated(depth) + QLatin1Char('1') + closing.repeated(depth), success);
            QCOMPARE(success, depth <= 1000);
            parse(opening.repeated(depth), success);
            QVERIFY(!success);
            // Depth is what is open at a time, not what was ever opened.
            const QString one = opening + QLatin1Char('1') + closing;
            parse(QLatin1Char('[') + one.repeated(depth) + QLatin1Char(']'), success);
            QVERIFY(success);
        }
    }
}

void TestJson::survivesDamage()
{
    const QString units = QStringLiteral("[]{}:,\"\\u-.e0tfn ") + QChar(0) + QChar(0xd800);
    const int end = kSample.lastIndexOf(QLatin1Char(']')) + 1;
    for (int position = 0; position < kSample.size(); ++position) {
        bool success = false;
        QCOMPARE(parse(kSample.left(position), success).isValid(), success);
        QCOMPARE(success, position >= end);
        for (const QChar unit : units) {
            QString damaged = kSample;
            damaged[position] = unit;
            const QVariant value = parse(damaged, success);
            QVERIFY(success || !value.isValid());
            // What could be read can be written.
            serialize(value, success, 0);
            QVERIFY(success);
        }
    }
    const QVariant sample = parse(kSample);
    QCOMPARE(show(parse(serializeStr(sample))), show(sample));
    setPrettySerialize(true);
    QCOMPARE(show(parse(serializeStr(sample))), show(sample));
}

void TestJson::writes_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("text");
    const auto row = [](const char *text, const QVariant &value) {
        QTest::addRow("%s %s", text, value.typeName()) << value << QByteArray(text);
    };
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    row("null", QVariant());
    row("[]", QStringList());
    row("{}", QVariantHash());
    row("[null,[1],{},[]]", QVariantList{QVariant(), QVariantList{1}, QVariantMap(), QVariantList()});
    row("[\"a\",\"\"]", QStringList{a, QString()});
    row("{\"a\":true,\"b\":1}", QVariantMap{{b, 1}, {a, true}});
    row("{\"b\":[{\"b\":\"a\"}]}", QVariantHash{{b, QVariantList{QVariantHash{{b, a}}}}});
    row("{\"\\\"\\\\\\n\":false}", QVariantMap{{QStringLiteral("\"\\\n"), false}});
    row("\"a/b\001%1\"", QStringLiteral("a/b\u0001%1"));
    row("\"\\\\ \\\" \\b \\f \\n \\r \\t \\\\n\"", QStringLiteral("\\ \" \b \f \n \r \t \\n"));
    row("\"Дедлайн 😀\"", QStringLiteral("Дедлайн 😀"));
    row("\"байты\"", QByteArray("байты"));
    row("2.0", 2.0);
    row("0.1", 0.1);
    row("0.333333", 1.0 / 3);
    row("100000.0", 100000.0);
    row("1.23457e+06", 1234567.0);
    row("1e-05", 0.00001);
    row("-inf.0", -std::numeric_limits<double>::infinity());
    row("18446744073709551615", std::numeric_limits<qulonglong>::max());
    row("-9223372036854775808", std::numeric_limits<qlonglong>::min());
    row("4294967295", 4294967295U);
    row("-7", QVariant::fromValue(short(-7)));
    row("65", QVariant::fromValue(char(65)));
    row("\"12:30:05.000\"", QTime(12, 30, 5));
}

void TestJson::writes()
{
    QFETCH(QVariant, value);
    bool success = false;
    QTEST(serialize(value, success, 3), "text");
    QVERIFY(success);
    QTEST(serializeStr(value).toUtf8(), "text");
}

void TestJson::writesDates()
{
    const QDate day(2024, 3, 1);
    const QDateTime moment(day, QTime(18, 5, 9));
    // Qt's text form speaks the language of the locale.
    const bool isEnglish = QLocale::system().language() == QLocale::C;
    const QByteArray dayText = isEnglish ? "\"Fri Mar 1 2024\"" : "\"пт мар. 1 2024\"";
    const QByteArray momentText = isEnglish ? "\"Fri Mar 1 18:05:09 2024\"" : "\"пт мар. 1 18:05:09 2024\"";
    QCOMPARE(serialize(moment), momentText);
    QCOMPARE(serialize(day), dayText);
    QCOMPARE(serialize(QDateTime()), QByteArray("\"\""));
    // The day's format works only once the other one is set.
    setDateFormat(QStringLiteral("dd.MM.yy"));
    QCOMPARE(serialize(moment), momentText);
    QCOMPARE(serialize(day), dayText);
    setDateTimeFormat(QStringLiteral("yyyy/MM/dd HH:mm"));
    QCOMPARE(serialize(moment), QByteArray("\"2024/03/01 18:05\""));
    QCOMPARE(serialize(day), QByteArray("\"01.03.24\""));
}

void TestJson::writesPretty()
{
    const QVariantMap map{{QStringLiteral("k"), QVariantList{1}}};
    bool success = false;
    setPrettySerialize(true);
    QCOMPARE(serialize(map), QByteArray("{\n    \"k\": [\n        1\n    ]\n}"));
    QCOMPARE(serialize(map, success, 1), QByteArray("{\n        \"k\": [\n            1\n        ]\n    }"));
    QCOMPARE(serialize(QVariantList{QVariantList(), QVariantMap(), map}),
             QByteArray("[\n    [],\n    {},\n    {\n        \"k\": [\n            1\n        ]\n    }\n]"));
}

void TestJson::refusesToWrite()
{
    const QVariant point = QPoint(1, 2);
    const QString key = QStringLiteral("k");
    for (const QVariant &value : {point, QVariant(QVariantMap{{key, QVariantList{1, point}}}),
                                  QVariant(QVariantHash{{key, point}})}) {
        bool success = true;
        QVERIFY(serialize(value, success, 0).isNull() && !success);
        success = true;
        QVERIFY(serializeStr(value, success).isNull() && !success);
    }
}

void TestJson::clones_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("copy");
    const QString k = QStringLiteral("k");
    QTest::newRow("scalar") << QVariant(1.5) << QStringLiteral("double 1.5");
    QTest::newRow("hash") << QVariant(QVariantHash{{k, QVariantHash{{k, 1}}}})
                          << QStringLiteral("{k={k=int 1}}");
    QTest::newRow("texts") << QVariant(QStringList{k}) << QStringLiteral("['k']");
    // A list takes over its elements as they are, a map clones them.
    QTest::newRow("list") << QVariant(QVariantList{QVariantMap()}) << QStringLiteral("[{}]");
    QTest::newRow("map") << QVariant(QVariantMap{{k, QVariantMap()}}) << QStringLiteral("{k=null}");
    QTest::newRow("empty list") << QVariant(QVariantList()) << QStringLiteral("null");
    QTest::newRow("empty map") << QVariant(QVariantMap()) << QStringLiteral("null");
    QTest::newRow("empty hash") << QVariant(QVariantHash()) << QStringLiteral("null");
    QTest::newRow("no texts") << QVariant(QStringList()) << QStringLiteral("null");
}

void TestJson::clones()
{
    QFETCH(QVariant, value);
    QTEST(show(clone(value)), "copy");
}

void TestJson::insertsAndAppends()
{
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    QVariant v = 5;
    insert(v, a, 1);
    insert(v, b, QVariantList());
    insert(v, a, 2);
    QCOMPARE(show(v), QStringLiteral("{a=int 2 b=null}"));
    v = QVariantHash{{a, 1}};
    insert(v, b, 2);
    QCOMPARE(show(v), QStringLiteral("{a=int 1 b=int 2}"));
    append(v, 1);
    append(v, QVariantList());
    QCOMPARE(show(v), QStringLiteral("[int 1 []]"));
    v = QStringList{a};
    append(v, b);
    QCOMPARE(show(v), QStringLiteral("['a' 'b']"));
}

void TestJson::builds()
{
    QVariantMap start{{QStringLiteral("z"), 0}};
    QVariantList startList{0};
    for (int round = 0; round < 3; ++round) {
        BuilderJsonArray *list = arrayBuilder(startList);
        BuilderJsonObject *inner = objectBuilder(start);
        list->add(round)->add(inner)->add(arrayBuilder());
        // What is added to a part later does not reach the whole.
        inner->set(QStringLiteral("late"), true);
        BuilderJsonObject *whole = objectBuilder();
        const QVariantMap built =
            whole->set(QStringLiteral("l"), list)->set(QStringLiteral("n"), round)->create();
        QCOMPARE(serialize(built),
                 QStringLiteral("{\"l\":[0,%1,{\"z\":0},[]],\"n\":%1}").arg(round).toUtf8());
        QCOMPARE(arrayBuilder()->add(whole)->create(), QVariantList{built});
    }
    // The last ones go with the next of their kind.
    delete arrayBuilder();
    delete objectBuilder();
}

QTEST_GUILESS_MAIN(TestJson)

#include "tst_json.moc"
