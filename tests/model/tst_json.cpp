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
    case QMetaType::QVariantList:
        for (const QVariant &item : value.toList())
            parts.append(show(item));
        return s("[%1]").arg(parts.join(QLatin1Char(' ')));
    case QMetaType::QVariantMap:
        for (const QString &key : value.toMap().keys())
            parts.append(key + QLatin1Char('=') + show(value.toMap().value(key)));
        return s("{%1}").arg(parts.join(QLatin1Char(' ')));
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
    void reads_data()
    {
        // Syntax, and what is forgiven; an empty result: refused.
        addRows({{"  [1,2] garbage", "[uint 1 uint 2]"},
                 {"[1 2\"3\"]", "[uint 1 uint 2 '3']"},
                 {"[truefalsenull]", "[bool true bool false null]"},
                 {"{,\"a\":1,,}", "{a=uint 1}"},
                 {" \t\r\n{ \"b\" \n:\t[] \"a\":{}} ", "{a={} b=[]}"},
                 // Whatever begins a key is passed over as if it were the quote.
                 {"{1a\":1}", "{a=uint 1}"},
                 {"\"a\\qb\\u00e9\\u00E9\\ud83d\\ude00\"", "'abéé😀'"},
                 {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\traw\"", "'\"\\/\b\f\n\r\t\traw'"},
                 {"4294967296", "qulonglong 4294967296"},
                 {"99999999999999999999", "'99999999999999999999'"},
                 {"-2147483649", "qlonglong -2147483649"},
                 {"1.", "double 1"},
                 {"1.2.3", "double 0"},
                 {"1e3", "'1e3'"},
                 {"[1-2]", "['1-2']"}});
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
        const QVariant value = parse(input, success);
        QCOMPARE(success, !result.isEmpty());
        QCOMPARE(show(value), success ? result : s("null"));
        // No text at all is no error.
        QVERIFY(!parse(QString(), success).isValid() && success);
        QCOMPARE(show(parse(s("\"\\uzzzz\\ud83d\""))), s("'") + QChar(0) + QChar(0xd83d) + s("'"));
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
        setPrettySerialize(true);
        QCOMPARE(serialize(QVariantList{1}), QByteArray("[\n    1\n]"));
        setPrettySerialize(false);
        // The day's format works only once the other one is set.
        const QDateTime moment(QDate(2024, 3, 1), QTime(18, 5, 9));
        setDateFormat(s("dd.MM.yy"));
        QVERIFY(serialize(moment.date()) != "\"01.03.24\"");
        setDateTimeFormat(s("yyyy/MM/dd HH:mm"));
        QCOMPARE(serialize(QVariantList{moment, moment.date(), QDateTime()}),
                 QByteArray("[\"2024/03/01 18:05\",\"01.03.24\",\"\"]"));
    }
};

QTEST_GUILESS_MAIN(TestJson)

#include "tst_json.moc"
