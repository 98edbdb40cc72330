#include "ui/descriptionrows.h"

#include "ui/artwork.h"
#include "ui/scrolltext.h"
#include "ui/simplemarkup.h"
#include "ui/tooltips.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QTimer>

#include <algorithm>
#include <functional>

namespace {

constexpr int kRowsAtOnce = 30; // more than a list shows
constexpr int kAttachmentHeight = 23;
constexpr int kRowMargin = 10;
constexpr int kPhraseHeight = 15;
constexpr int kPhraseWidth = 180;
constexpr int kCountWidth = 90;
constexpr int kPhraseSpacing = 8;
const QString kBuilderName = QStringLiteral("rowBuilder");

QLabel *plainLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    return label;
}

ScrollText *nameLabel(const QString &text, QWidget *parent)
{
    auto *label = new ScrollText(false, parent);
    label->setText(text);
    label->setToolTip(literalToolTip(text));
    return label;
}

QString shownName(const Attachment &file)
{
    return file.filenameOrig.isEmpty() ? file.filename : file.filenameOrig;
}

QString exactWords(const Keyword &keyword)
{
    return QStringLiteral("Точн. ") + titleLine(keyword.count);
}

QString inexactWords(const Keyword &keyword)
{
    return QStringLiteral("Неточн. ") + titleLine(keyword.count2);
}

QWidget *attachmentRow(const Attachment &file, const QString &size, const QPixmap &icon, QWidget *parent)
{
    auto *row = new QWidget(parent);
    row->setFixedHeight(kAttachmentHeight);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(kRowMargin, 0, kRowMargin, 0);
    auto *picture = new QLabel(row);
    picture->setPixmap(icon);
    layout->addWidget(picture);
    layout->addWidget(nameLabel(shownName(file), row), 1);
    layout->addWidget(plainLabel(size, row));
    return row;
}

QWidget *phraseRow(const Keyword &keyword, QWidget *parent)
{
    auto *row = new QWidget(parent);
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kPhraseSpacing);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    ScrollText *phrase = nameLabel(keyword.keyword, row);
    phrase->setFixedSize(kPhraseWidth, kPhraseHeight);
    layout->addWidget(phrase);
    for (const QString &count : {exactWords(keyword), inexactWords(keyword)}) {
        QLabel *label = plainLabel(count, row);
        label->setFixedHeight(kPhraseHeight);
        label->setMaximumWidth(kCountWidth);
        layout->addWidget(label);
    }
    return row;
}

// Items come before widgets: the first widget after a new item makes the list lay
// out everything. A widget takes half a millisecond, so hundreds are made in turns.
void fill(QListWidget *list, const QStringList &spoken, int height,
          const std::function<QWidget *(int)> &makeRow)
{
    delete list->findChild<QTimer *>(kBuilderName, Qt::FindDirectChildrenOnly);
    list->clear();
    for (const QString &words : spoken) {
        auto *item = new QListWidgetItem(list);
        item->setSizeHint(QSize(0, height));
        item->setData(Qt::AccessibleTextRole, words);
    }
    const auto build = [list, makeRow](int from) {
        const int end = std::min(from + kRowsAtOnce, list->count());
        for (int i = from; i < end; ++i)
            list->setItemWidget(list->item(i), makeRow(i));
        return end;
    };
    const int built = build(0);
    if (built == list->count())
        return;
    auto *builder = new QTimer(list);
    builder->setObjectName(kBuilderName);
    QObject::connect(builder, &QTimer::timeout, builder, [list, builder, build, next = built]() mutable {
        next = build(next);
        if (next == list->count())
            builder->deleteLater();
    });
    builder->start();
}

} // namespace

void showAttachmentRows(QListWidget *list, const QList<Attachment> &files, const QStringList &sizes)
{
    const QPixmap icon = QPixmap::fromImage(
        Artwork::load(QStringLiteral(":/images/res/images/task_desc_dialog/attachment_icon.png")));
    QStringList spoken;
    spoken.reserve(files.size());
    for (int i = 0; i < files.size(); ++i)
        spoken.append(titleLine(shownName(files.at(i))) + QStringLiteral(", ") + sizes.at(i));
    fill(list, spoken, kAttachmentHeight,
         [list, files, sizes, icon](int i) { return attachmentRow(files.at(i), sizes.at(i), icon, list); });
}

void showPhraseRows(QListWidget *list, const QList<Keyword> &phrases)
{
    QStringList spoken;
    spoken.reserve(phrases.size());
    for (const Keyword &keyword : phrases) {
        spoken.append(titleLine(keyword.keyword) + QStringLiteral(", ") + exactWords(keyword)
                      + QStringLiteral(", ") + inexactWords(keyword));
    }
    fill(list, spoken, kPhraseHeight, [list, phrases](int i) { return phraseRow(phrases.at(i), list); });
}
