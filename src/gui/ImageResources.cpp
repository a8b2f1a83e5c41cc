#include "ImageResources.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

static void initGuiResources() {
    Q_INIT_RESOURCE(gui_resources);
}

namespace tw {

namespace {

void ensureResources() {
    static const bool done = [] {
        initGuiResources();
        return true;
    }();
    Q_UNUSED(done);
}

} // namespace

QString ImageResources::path(const QString& name) {
    ensureResources();
    return QStringLiteral(":/images/") + name + QStringLiteral(".svg");
}

bool ImageResources::exists(const QString& name) {
    return QFile::exists(path(name));
}

QIcon ImageResources::icon(const QString& name) {
    return QIcon(path(name));
}

namespace {

QPixmap render(QSvgRenderer& renderer, const QSize& size, qreal devicePixelRatio) {
    QPixmap result(size * devicePixelRatio);
    result.setDevicePixelRatio(devicePixelRatio);
    result.fill(Qt::transparent);
    if (!renderer.isValid())
        return result;
    QPainter painter(&result);
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
    return result;
}

// The drawing's text with its own colours replaced by the palette's.
QByteArray themedSource(const QString& name, const QPalette& palette) {
    QFile file(ImageResources::path(name));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    QByteArray source = file.readAll();
    const auto quoted = [](const QColor& color) { return QByteArray("\"" + color.name().toLatin1() + "\""); };
    const QByteArray ink = quoted(palette.color(QPalette::WindowText));
    for (const char* drawnInk : {"\"#2f3b46\"", "\"#4a5560\"", "\"#000\""})
        source.replace(drawnInk, ink);
    source.replace("\"#ffffff\"", quoted(palette.color(QPalette::Base)));
    source.replace("\"#3584e4\"", quoted(palette.color(QPalette::Highlight)));
    return source;
}

} // namespace

QPixmap ImageResources::pixmap(const QString& name, const QSize& size, qreal devicePixelRatio) {
    QSvgRenderer renderer(path(name));
    return render(renderer, size, devicePixelRatio);
}

QPixmap ImageResources::themedPixmap(const QString& name, const QSize& size, const QPalette& palette,
                                     qreal devicePixelRatio) {
    QSvgRenderer renderer(themedSource(name, palette));
    return render(renderer, size, devicePixelRatio);
}

QIcon ImageResources::themedIcon(const QString& name, const QPalette& palette) {
    QSvgRenderer renderer(themedSource(name, palette));
    QIcon result;
    for (const int side : {16, 22, 24, 32}) {
        for (const qreal ratio : {1.0, 2.0})
            result.addPixmap(render(renderer, QSize(side, side), ratio));
    }
    return result;
}

QIcon ImageResources::applicationIcon() {
    return icon(QStringLiteral("tarnwell"));
}

} // namespace tw
