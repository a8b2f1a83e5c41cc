#include "EmptyTablePlaceholder.h"

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

    auto* layout = new QVBoxLayout(this);
    layout->addStretch(2);
    layout->addWidget(m_imageView, 0, Qt::AlignHCenter);
    layout->addWidget(m_textView);
    layout->addWidget(m_btnAddSite, 0, Qt::AlignHCenter);
    layout->addWidget(m_btnCheckOut, 0, Qt::AlignHCenter);
    layout->addStretch(3);

    connect(m_btnAddSite, &QPushButton::clicked, this, &EmptyTablePlaceholder::addSiteClicked);
    connect(m_btnCheckOut, &QPushButton::clicked, this, &EmptyTablePlaceholder::checkOutClicked);
    m_controller.hideAll();
}

} // namespace tw
