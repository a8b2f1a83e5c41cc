#include "EmptyTableViewController.h"

#include "ImageResources.h"

#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QPushButton>

namespace tw {

EmptyTableViewController::EmptyTableViewController(QLabel* imageView, QLabel* textView,
                                                   QPushButton* btnAddSite, QPushButton* btnCheckOut)
    : m_imageView(imageView)
    , m_textView(textView)
    , m_btnAddSite(btnAddSite)
    , m_btnCheckOut(btnCheckOut) {
    if (m_imageView) {
        // The image is a faint watermark.
        auto* opacity = new QGraphicsOpacityEffect(m_imageView);
        opacity->setOpacity(0.2);
        m_imageView->setGraphicsEffect(opacity);
    }
}

void EmptyTableViewController::hideAll() {
    m_imageName.clear();
    for (QWidget* view :
         {static_cast<QWidget*>(m_imageView.data()), static_cast<QWidget*>(m_textView.data()),
          static_cast<QWidget*>(m_btnAddSite.data()), static_cast<QWidget*>(m_btnCheckOut.data())}) {
        if (view)
            view->hide();
    }
}

void EmptyTableViewController::showImage(const QString& name) {
    m_imageName = name;
    if (!m_imageView)
        return;
    drawImage(m_imageView->palette());
    m_imageView->show();
}

void EmptyTableViewController::drawImage(const QPalette& palette) {
    const qreal ratio = m_imageView->devicePixelRatioF();
    m_imageView->setPixmap(
        ImageResources::themedPixmap(m_imageName, QSize(imageSize, imageSize), palette, ratio));
}

void EmptyTableViewController::redrawImage(const QPalette& palette) {
    if (!m_imageName.isEmpty() && m_imageView)
        drawImage(palette);
}

void EmptyTableViewController::showText(const QString& text) {
    if (!m_textView)
        return;
    m_textView->setText(text);
    m_textView->show();
}

void EmptyTableViewController::noSitesDefined() {
    hideAll();
    showImage(QStringLiteral("RocketLaunch"));
    // The text is set but stays hidden: the image and the button say it.
    if (m_textView)
        m_textView->setText(QStringLiteral("No sites defined."));
    if (m_btnAddSite)
        m_btnAddSite->show();
}

void EmptyTableViewController::notValidGitRepoWith(const QString& text) {
    hideAll();
    showImage(QStringLiteral("ui-cross-2"));
    showText(text);
}

void EmptyTableViewController::wrongBranchIsSelectedWith(const QString& text, const QString& correctBranch) {
    hideAll();
    showImage(QStringLiteral("git"));
    showText(text);
    if (m_btnCheckOut) {
        m_btnCheckOut->setText(QStringLiteral("Check out branch '") + correctBranch + QStringLiteral("'"));
        m_btnCheckOut->show();
    }
}

void EmptyTableViewController::hasFilesToDeployWithStatus(bool hasFiles) {
    hideAll();
    if (hasFiles)
        return;
    showImage(QStringLiteral("cloud_tick"));
    showText(QStringLiteral("All files deployed. Good work!"));
}

bool EmptyTableViewController::isShowingAnything() const {
    for (const QWidget* view :
         {static_cast<const QWidget*>(m_imageView.data()), static_cast<const QWidget*>(m_textView.data()),
          static_cast<const QWidget*>(m_btnAddSite.data()),
          static_cast<const QWidget*>(m_btnCheckOut.data())}) {
        if (view && !view->isHidden())
            return true;
    }
    return false;
}

} // namespace tw
