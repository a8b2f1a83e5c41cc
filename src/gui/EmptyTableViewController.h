#pragma once

#include "deploy/EmptyTableView.h"

#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QString>

namespace tw {

// Fills the place of the file table when there is nothing to list: an image,
// a text and one of two buttons. Made only with its four views, which it
// does not own; each operation hides all four first, then shows its parts.
class EmptyTableViewController : public EmptyTableView {
public:
    EmptyTableViewController() = delete;
    EmptyTableViewController(QLabel* imageView, QLabel* textView, QPushButton* btnAddSite,
                             QPushButton* btnCheckOut);

    void hideAll() override;
    void noSitesDefined() override;
    void notValidGitRepoWith(const QString& text) override;
    void wrongBranchIsSelectedWith(const QString& text, const QString& correctBranch) override;
    void hasFilesToDeployWithStatus(bool hasFiles) override;

    // The name of the image shown last (empty after hideAll).
    QString imageName() const { return m_imageName; }
    // Draws the image shown again in the colours of a new palette.
    void redrawImage(const QPalette& palette);
    // True when any of the four views is to be seen.
    bool isShowingAnything() const;

    QLabel* imageView() const { return m_imageView; }
    QLabel* textView() const { return m_textView; }
    QPushButton* btnAddSite() const { return m_btnAddSite; }
    QPushButton* btnCheckOut() const { return m_btnCheckOut; }

    static constexpr int imageSize = 96;

private:
    void showImage(const QString& name);
    void drawImage(const QPalette& palette);
    void showText(const QString& text);

    QPointer<QLabel> m_imageView;
    QPointer<QLabel> m_textView;
    QPointer<QPushButton> m_btnAddSite;
    QPointer<QPushButton> m_btnCheckOut;
    QString m_imageName;
};

} // namespace tw
