#pragma once

#include <QColor>
#include <QIcon>
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
    // A line drawing in the palette's colour of text, for light and dark
    // themes alike; sharp at 1× and 2× (drawn for both).
    static QIcon tintedIcon(const QString& name, const QColor& color);
};

} // namespace tw
