#pragma once

#include <QtTest>

#include <initializer_list>
#include <utility>

// Test data of two texts, "input" and "result"; each row is named by its input.
inline void addRows(std::initializer_list<std::pair<const char *, const char *>> rows)
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("result");
    for (const auto &row : rows)
        QTest::newRow(row.first) << QString::fromUtf8(row.first) << QString::fromUtf8(row.second);
}
