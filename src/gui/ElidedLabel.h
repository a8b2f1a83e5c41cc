#pragma once

#include <QLabel>

namespace tw {

// A one-line label that never widens its window: a text too long for the
// width it gets is cut, after a whole word where there is one, with an
// ellipsis, and the whole text is its tool tip and accessible name. Details
// (curl's text under a sentence) go into the tool tip below the whole text,
// whatever the width. fullText() is always the whole text; shownText() what
// is drawn.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    void setFullText(const QString& text);
    // Shown in the tool tip under the whole text; empty for none.
    void setDetails(const QString& details);
    QString details() const { return m_details; }
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
    QString m_details;
    QString m_shown;
};

} // namespace tw
