#pragma once

#include <QString>

// Texts of the service, made harmless for the text engine: it recurses into
// nested tables until the stack ends and takes seconds for one endless word.

// HTML of nothing but emphasis, paragraphs, headings, lists and links to web
// pages, well nested, rows of tables as lines. Null when the text has no markup.
QString simpleMarkup(const QString &text);

// What opens this web page: the text, with "http://" where only the scheme is missing.
// Empty for everything else, other schemes included.
QString webAddress(const QString &text);

// The text with places to break inside endless words, cut where it gets too long
// to be read.
QString breakableText(const QString &text);

// One line of a title: without line breaks, cut where it gets too long.
QString titleLine(const QString &title);
