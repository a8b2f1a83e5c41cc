#pragma once

#include "SiteListModel.h"

#include <QWidget>

class QAction;
class QListView;
class QToolButton;

namespace tw {

class UserInteraction;

// The collapsible list of sites at the side of the main window: name and
// host of each site, buttons to add, duplicate and delete a site, reordering
// by drag and drop. Choosing a site writes "currentSiteIndex"; the deploy
// controller follows that preference. Adding and editing open the site
// editor, which the main window does on addSiteRequested / editSiteRequested.
//
// The preference "sitesCollapsed" hides the sidebar; toggleAction() switches
// it and belongs in the window's tool bar (images "ui-window-2" when
// collapsed, "ui-window-2-highlight" when shown).
class SitesSidebar : public QWidget {
    Q_OBJECT

public:
    // The interaction asks before a site is deleted; it must outlive the sidebar.
    explicit SitesSidebar(UserInteraction& interaction, QWidget* parent = nullptr);

    SiteListModel* model() const { return m_model; }
    QListView* listView() const { return m_list; }
    QAction* toggleAction() const { return m_toggleAction; }
    QToolButton* addButton() const { return m_addButton; }
    QToolButton* duplicateButton() const { return m_duplicateButton; }
    QToolButton* removeButton() const { return m_removeButton; }

    // The selected row, or -1.
    int currentRow() const;
    // Selects the site "currentSiteIndex" names.
    void selectCurrentSite();

    void duplicateSite(int row);
    // Asks first; answers whether the site was removed.
    bool removeSite(int row);

    static bool isCollapsed();
    // Flips "sitesCollapsed" and stores it.
    void toggleSitesView();

signals:
    void addSiteRequested();
    void editSiteRequested(int row);
    void editScriptsRequested(int row);

protected:
    void changeEvent(QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void applyCollapsed();
    void currentRowChanged(int row);
    void updateButtons();

    UserInteraction& m_interaction;
    SiteListModel* m_model;
    QListView* m_list;
    QToolButton* m_addButton;
    QToolButton* m_duplicateButton;
    QToolButton* m_removeButton;
    QAction* m_toggleAction;
    bool m_syncing = false; // the selection follows the preference, not the person
};

} // namespace tw
