#pragma once

#include <QColor>
#include <QPalette>

namespace tw {

// Colours that carry meaning (an error, a success), chosen for the palette
// in use so that they stay readable on light and dark backgrounds alike.
class ThemeColors {
public:
    static bool isDark(const QPalette& palette);
    static QColor errorText(const QPalette& palette);
    static QColor successText(const QPalette& palette);
    // "color: …" for a label's style sheet.
    static QString styleSheetColor(const QColor& color);
};

} // namespace tw
