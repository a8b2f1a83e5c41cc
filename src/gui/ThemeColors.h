#pragma once

#include <QColor>
#include <QPalette>

namespace tw {

// Colours that carry meaning (an error, a success), chosen for the palette
// in use so that they stay readable on light and dark backgrounds alike.
class ThemeColors {
public:
    static bool isDark(const QPalette& palette);
    // A dark palette of the Fusion style's kind, for looking at the window as
    // people with a dark theme see it (screenshots, tests).
    static QPalette darkPalette();
    static QColor errorText(const QPalette& palette);
    static QColor successText(const QPalette& palette);
    // "color: …" for a label's style sheet.
    static QString styleSheetColor(const QColor& color);
};

} // namespace tw
