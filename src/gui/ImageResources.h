#pragma once

#include <QColor>
#include <QIcon>
#include <QPalette>
#include <QPixmap>
#include <QSize>
#include <QString>

namespace tw {

// The application's own images, drawn as SVG and kept in the resources under
// their names ("cloud_tick", "ui-cross-2", "git", "RocketLaunch",
// "ui-window-2", "ui-window-2-highlight", "tarnwell", "list-add",
// "list-remove", "edit-copy").
class ImageResources {
public:
    static QString path(const QString& name);
    static bool exists(const QString& name);
    static QIcon icon(const QString& name);
    // Rendered at the size given (in device-independent pixels) for the
    // screen's pixel ratio.
    static QPixmap pixmap(const QString& name, const QSize& size, qreal devicePixelRatio = 1.0);
    static QIcon applicationIcon();
    // A drawing in the palette's colours, for light and dark themes alike:
    // its ink (the dark outlines) in the colour of text, its white in the
    // colour of the base, its blue in the highlight colour, its accents (a
    // green tick, an orange flame) as drawn. Draw again when the palette
    // changes.
    static QPixmap themedPixmap(const QString& name, const QSize& size, const QPalette& palette,
                                qreal devicePixelRatio = 1.0);
    // The same, sharp at 1× and 2× (drawn for both) in the usual icon sizes.
    static QIcon themedIcon(const QString& name, const QPalette& palette);
};

} // namespace tw
