#pragma once

#include "model/records.h"
#include "widgets/rowdelegate.h"

#include <QPixmap>
#include <QVariant>

// What the rows of a task's files, required phrases and texts show; for a ListModel.
enum DescriptionRole {
    SizeRole = Qt::UserRole, // of a file, in words
    ExactRole = Qt::UserRole, // of a phrase, in words
    InexactRole
};

QVariant fileItem(const Attachment &file, int role);
QVariant phraseItem(const Keyword &phrase, int role);
// Qt::UserRole is the whole assignment.
QVariant textItem(const TextTask &textTask, int role);

// "1.50 KB"; units up to TB.
QString sizeText(float bytes);

// Icon, name and, at the right end, the size.
class FileRowDelegate final : public RowDelegate
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FileRowDelegate)

public:
    explicit FileRowDelegate(const QPixmap &icon, QObject *parent = nullptr);

    QRect titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

protected:
    void drawRow(QPainter *painter, const QStyleOptionViewItem &row, const QModelIndex &index) const override;
    int rowHeight(const QStyleOptionViewItem &option) const override;

private:
    QRect sizeRect(const QStyleOptionViewItem &option, const QModelIndex &index) const;
    QSize iconSize() const { return m_icon.size() / m_icon.devicePixelRatio(); }

    QPixmap m_icon;
};

// The phrase and both counts.
class PhraseRowDelegate final : public RowDelegate
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PhraseRowDelegate)

public:
    using RowDelegate::RowDelegate;

    QRect titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

protected:
    void drawRow(QPainter *painter, const QStyleOptionViewItem &row, const QModelIndex &index) const override;
    int rowHeight(const QStyleOptionViewItem &option) const override;
};
