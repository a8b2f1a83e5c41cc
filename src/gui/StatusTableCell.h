#pragma once

#include <QColor>
#include <QStyledItemDelegate>

#include <optional>

namespace tw {

// Draws a file's git change letter on a rounded, coloured badge: red for a
// deleted file ("D"), green for an added one ("A"), blue for a modified one
// ("M") and a faint grey for a file that is always uploaded ("-"). Any other
// letter draws no badge. The delegate of the file table's change column; it
// reads the letter from FileTableModel::GitStatusRole.
class StatusTableCell : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit StatusTableCell(QObject* parent = nullptr);

    // The badge's fill for a change letter; nothing for a letter without a
    // badge. A file without a letter is not asked here (see paintBadge).
    static std::optional<QColor> badgeColor(const QString& gitStatus);

    // Fills the rounded rectangle (corner radii 3) of the given bounds. A
    // file without a letter fills with the painter's current brush.
    static void paintBadge(QPainter* painter, const QRectF& bounds, const std::optional<QString>& gitStatus);

    // The letter's colour on its badge: black or white, whichever stands out
    // more from the badge as it shows over the given background (the faint
    // badge of "-" lets the background through).
    static QColor letterColor(const QString& gitStatus, const QColor& background);
    // The WCAG contrast ratio of two opaque colours (1 to 21).
    static double contrastRatio(const QColor& a, const QColor& b);
    // A colour with alpha laid over an opaque background.
    static QColor composited(const QColor& over, const QColor& background);

    static constexpr qreal cornerRadius = 3.0;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace tw
