#pragma once

#include "texts.h"

#include <QtTest>

#include <initializer_list>
#include <utility>

template <typename... Types, typename... Names>
void addColumns(Names... names)
{
    (QTest::addColumn<Types>(names), ...);
}

// Test data of two texts, "input" and "result"; each row is named by its input.
inline void addRows(std::initializer_list<std::pair<const char *, const char *>> rows)
{
    addColumns<QString, QString>("input", "result");
    for (const auto &row : rows)
        QTest::newRow(row.first) << s(row.first) << s(row.second);
}
