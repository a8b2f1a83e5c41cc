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

QPixmap ImageResources::pixmap(const QString& name, const QSize& size, qreal devicePixelRatio) {
    QSvgRenderer renderer(path(name));
    QPixmap result(size * devicePixelRatio);
    result.setDevicePixelRatio(devicePixelRatio);
    result.fill(Qt::transparent);
    if (!renderer.isValid())
        return result;
    QPainter painter(&result);
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
    return result;
}

QIcon ImageResources::tintedIcon(const QString& name, const QColor& color) {
    QIcon result;
    for (const int side : {16, 22, 24, 32}) {
        for (const qreal ratio : {1.0, 2.0}) {
            QPixmap drawn = pixmap(name, QSize(side, side), ratio);
            QPainter painter(&drawn);
            painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
            painter.fillRect(QRectF(0, 0, side, side), color);
            painter.end();
            result.addPixmap(drawn);
        }
    }
    return result;
}

QIcon ImageResources::applicationIcon() {
    return icon(QStringLiteral("tarnwell"));
}

} // namespace tw
