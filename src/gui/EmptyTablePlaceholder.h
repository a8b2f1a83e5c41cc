#pragma once

#include "EmptyTableViewController.h"

#include <QWidget>

class QLabel;
class QPushButton;

namespace tw {

// The placeholder the main window puts where the file table stands: the four
// views laid out in the middle, driven by an EmptyTableViewController.
class EmptyTablePlaceholder : public QWidget {
    Q_OBJECT

public:
    explicit EmptyTablePlaceholder(QWidget* parent = nullptr);

    EmptyTableViewController& controller() { return m_controller; }
    QLabel* imageView() const { return m_imageView; }
    QLabel* textView() const { return m_textView; }
    QPushButton* addSiteButton() const { return m_btnAddSite; }
    QPushButton* checkOutButton() const { return m_btnCheckOut; }

signals:
    void addSiteClicked();
    void checkOutClicked();

private:
    QLabel* m_imageView;
    QLabel* m_textView;
    QPushButton* m_btnAddSite;
    QPushButton* m_btnCheckOut;
    EmptyTableViewController m_controller;
};

} // namespace tw
