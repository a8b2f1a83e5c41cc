#pragma once

#include "EmptyTableViewController.h"
#include "deploy/DeployReadiness.h"

#include <QWidget>

#include <optional>

class QLabel;
class QPushButton;

namespace tw {

// The placeholder the main window puts where the file table stands: the four
// views laid out in the middle, driven by an EmptyTableViewController, and
// below them what the window adds: a line that names what is wrong (the
// branch, the folder) and the buttons that fix it (the site's settings,
// choosing the folder again).
class EmptyTablePlaceholder : public QWidget {
    Q_OBJECT

public:
    explicit EmptyTablePlaceholder(QWidget* parent = nullptr);

    EmptyTableViewController& controller() { return m_controller; }
    QLabel* imageView() const { return m_imageView; }
    QLabel* textView() const { return m_textView; }
    QPushButton* addSiteButton() const { return m_btnAddSite; }
    QPushButton* checkOutButton() const { return m_btnCheckOut; }
    QLabel* hintView() const { return m_hintView; }
    QPushButton* settingsButton() const { return m_btnSettings; }
    QPushButton* chooseFolderButton() const { return m_btnChooseFolder; }

    // Shows the line and the buttons asked for; an empty hint and no
    // buttons hide them all.
    void showFix(const QString& hint, bool settings, bool chooseFolder);
    // The line and buttons for what keeps a site from deploying: its folder
    // is gone, is no repository, another branch (checkedOut, or a detached
    // HEAD) is checked out, it names no server. Nothing for the rest.
    void showFixFor(DeployReadiness readiness, const QString& folder,
                    const std::optional<QString>& checkedOut, const QString& deployBranch);

signals:
    void addSiteClicked();
    void checkOutClicked();
    void settingsClicked();
    void chooseFolderClicked();

protected:
    void changeEvent(QEvent* event) override;

private:
    QLabel* m_imageView;
    QLabel* m_textView;
    QPushButton* m_btnAddSite;
    QPushButton* m_btnCheckOut;
    QLabel* m_hintView;
    QPushButton* m_btnSettings;
    QPushButton* m_btnChooseFolder;
    EmptyTableViewController m_controller;
};

} // namespace tw
