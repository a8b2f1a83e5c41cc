#include "ElidedLabel.h"

#include <QEvent>
#include <QFontMetrics>

namespace tw {

ElidedLabel::ElidedLabel(QWidget* parent)
    : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    setWordWrap(false);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

void ElidedLabel::setFullText(const QString& text) {
    m_fullText = text;
    updateShown();
    updateGeometry();
}

void ElidedLabel::setDetails(const QString& details) {
    m_details = details;
    updateShown();
}

QString ElidedLabel::elidedAtWord(const QString& text, const QFontMetrics& metrics, int width) {
    if (metrics.horizontalAdvance(text) <= width)
        return text;
    const QString ellipsis(QChar(0x2026));
    const int room = width - metrics.horizontalAdvance(ellipsis);
    // The longest run of whole words that fits.
    qsizetype end = text.size();
    while (true) {
        end = text.lastIndexOf(QLatin1Char(' '), end - 1);
        if (end <= 0)
            break;
        const QString start = text.left(end).trimmed();
        if (!start.isEmpty() && metrics.horizontalAdvance(start) <= room)
            return start + ellipsis;
    }
    // One word longer than the room: cut it where it must be.
    return metrics.elidedText(text, Qt::ElideRight, width);
}

QSize ElidedLabel::minimumSizeHint() const {
    const QSize hint = QLabel::minimumSizeHint();
    return QSize(fontMetrics().horizontalAdvance(QStringLiteral("\u2026")) * 4, hint.height());
}

QSize ElidedLabel::sizeHint() const {
    const QSize hint = QLabel::sizeHint();
    return QSize(std::min(hint.width(), fontMetrics().horizontalAdvance(m_fullText) + 4), hint.height());
}

void ElidedLabel::resizeEvent(QResizeEvent* event) {
    QLabel::resizeEvent(event);
    updateShown();
}

void ElidedLabel::changeEvent(QEvent* event) {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        updateShown();
}

void ElidedLabel::updateShown() {
    const int width = contentsRect().width() - 2 * margin() - (indent() > 0 ? indent() : 0);
    m_shown = elidedAtWord(m_fullText, fontMetrics(), std::max(width, 0));
    QLabel::setText(m_shown);
    if (!m_details.isEmpty())
        setToolTip(m_fullText + QStringLiteral("\n\n") + m_details);
    else
        setToolTip(m_shown == m_fullText ? QString() : m_fullText);
    setAccessibleName(m_fullText);
}

} // namespace tw
