#include "EmptyTablePlaceholder.h"

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

} // namespace tw
