#include "EmptyTablePlaceholder.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace tw {

EmptyTablePlaceholder::EmptyTablePlaceholder(QWidget* parent)
    : QWidget(parent)
    , m_imageView(new QLabel(this))
    , m_textView(new QLabel(this))
    , m_btnAddSite(new QPushButton(tr("Add a Site\u2026"), this))
    , m_btnCheckOut(new QPushButton(this))
    , m_hintView(new QLabel(this))
    , m_btnSettings(new QPushButton(tr("Site Settings\u2026"), this))
    , m_btnChooseFolder(new QPushButton(tr("Choose Folder\u2026"), this))
    , m_controller(m_imageView, m_textView, m_btnAddSite, m_btnCheckOut) {
    m_imageView->setObjectName(QStringLiteral("emptyTableImageView"));
    m_imageView->setAlignment(Qt::AlignCenter);
    m_imageView->setMinimumSize(EmptyTableViewController::imageSize, EmptyTableViewController::imageSize);
    m_textView->setObjectName(QStringLiteral("emptyTableLable"));
    m_textView->setAlignment(Qt::AlignCenter);
    m_textView->setWordWrap(true);
    m_textView->setTextFormat(Qt::PlainText);
    m_textView->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_btnAddSite->setObjectName(QStringLiteral("addSiteButton"));
    m_btnCheckOut->setObjectName(QStringLiteral("checkoutNowBtn"));
    m_imageView->setAccessibleName(tr("Status picture"));
    m_hintView->setObjectName(QStringLiteral("emptyTableHint"));
    m_hintView->setAlignment(Qt::AlignCenter);
    m_hintView->setWordWrap(true);
    m_hintView->setTextFormat(Qt::PlainText);
    m_hintView->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_btnSettings->setObjectName(QStringLiteral("siteSettingsButton"));
    m_btnChooseFolder->setObjectName(QStringLiteral("chooseFolderButton"));
    auto* fixes = new QHBoxLayout;
    fixes->addStretch();
    fixes->addWidget(m_btnCheckOut);
    fixes->addWidget(m_btnChooseFolder);
    fixes->addWidget(m_btnSettings);
    fixes->addStretch();

    auto* layout = new QVBoxLayout(this);
    layout->addStretch(2);
    layout->addWidget(m_imageView, 0, Qt::AlignHCenter);
    layout->addWidget(m_textView);
    layout->addWidget(m_hintView);
    layout->addWidget(m_btnAddSite, 0, Qt::AlignHCenter);
    layout->addLayout(fixes);
    layout->addStretch(3);

    connect(m_btnAddSite, &QPushButton::clicked, this, &EmptyTablePlaceholder::addSiteClicked);
    connect(m_btnCheckOut, &QPushButton::clicked, this, &EmptyTablePlaceholder::checkOutClicked);
    connect(m_btnSettings, &QPushButton::clicked, this, &EmptyTablePlaceholder::settingsClicked);
    connect(m_btnChooseFolder, &QPushButton::clicked, this, &EmptyTablePlaceholder::chooseFolderClicked);
    m_controller.hideAll();
    showFix(QString(), false, false);
}

void EmptyTablePlaceholder::showFix(const QString& hint, bool settings, bool chooseFolder) {
    m_hintView->setText(hint);
    m_hintView->setVisible(!hint.isEmpty());
    m_btnSettings->setVisible(settings);
    m_btnChooseFolder->setVisible(chooseFolder);
}

void EmptyTablePlaceholder::showFixFor(DeployReadiness readiness, const QString& folder,
                                       const std::optional<QString>& checkedOut,
                                       const QString& deployBranch) {
    switch (readiness) {
    case DeployReadiness::NoFolder:
        showFix(folder.isEmpty() ? tr("The site has no repository folder.")
                                 : tr("The folder %1 is gone. Choose it again if it moved.").arg(folder),
                true, true);
        return;
    case DeployReadiness::NotARepository:
        showFix(tr("%1 is not a git repository. Choose the repository's folder in the site's settings.")
                    .arg(folder),
                true, false);
        return;
    case DeployReadiness::OtherBranch:
        showFix(checkedOut
                    ? tr("The branch \u201c%1\u201d is checked out; this site deploys \u201c%2\u201d.")
                          .arg(*checkedOut, deployBranch)
                    : tr("No branch is checked out (a detached HEAD); this site deploys \u201c%1\u201d.")
                          .arg(deployBranch),
                true, false);
        return;
    case DeployReadiness::NoHost:
        showFix(tr("The site names no server."), true, false);
        return;
    default:
        showFix(QString(), false, false);
        return;
    }
}

void EmptyTablePlaceholder::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        m_controller.redrawImage(palette()); // the image view's own comes after
}

} // namespace tw
