#pragma once

#include <QLabel>

namespace tw {

// A one-line label that never widens its window: a text too long for the
// width it gets is cut, after a whole word where there is one, with an
// ellipsis, and the whole text is its tool tip and accessible description.
// text() is always the whole text; shownText() what is drawn.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    void setFullText(const QString& text);
    QString fullText() const { return m_fullText; }
    QString shownText() const { return m_shown; }
    bool isElided() const { return m_shown != m_fullText; }

    // The longest start of text that fits into width pixels with the font's
    // metrics: whole words and an ellipsis when the text is cut (a single
    // word too long is cut where it must be).
    static QString elidedAtWord(const QString& text, const QFontMetrics& metrics, int width);

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void updateShown();

    QString m_fullText;
    QString m_shown;
};

} // namespace tw
