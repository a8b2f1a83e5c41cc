#include "ThemeColors.h"

namespace tw {

bool ThemeColors::isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightnessF() < 0.5;
}

QPalette ThemeColors::darkPalette() {
    QPalette p;
    const QColor window(45, 45, 48), base(30, 30, 32), text(230, 230, 230), disabled(130, 130, 130);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, QColor(38, 38, 41));
    p.setColor(QPalette::ToolTipBase, window);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(150, 150, 150));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::red);
    p.setColor(QPalette::Link, QColor(110, 170, 255));
    p.setColor(QPalette::Highlight, QColor(53, 132, 228));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Disabled, QPalette::Text, disabled);
    p.setColor(QPalette::Disabled, QPalette::WindowText, disabled);
    p.setColor(QPalette::Disabled, QPalette::ButtonText, disabled);
    return p;
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
