#include "ThemeColors.h"

namespace tw {

bool ThemeColors::isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightnessF() < 0.5;
}

QColor ThemeColors::errorText(const QPalette& palette) {
    return isDark(palette) ? QColor(255, 123, 114) : QColor(192, 28, 40);
}

QColor ThemeColors::successText(const QPalette& palette) {
    return isDark(palette) ? QColor(87, 227, 137) : QColor(27, 122, 62);
}

QString ThemeColors::styleSheetColor(const QColor& color) {
    return QStringLiteral("color: %1;").arg(color.name());
}

} // namespace tw
