#include "SitesSidebar.h"

#include "ImageResources.h"
#include "SiteItemDelegate.h"
#include "app/Preferences.h"
#include "app/UserInteraction.h"
#include "model/SiteListActions.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QEvent>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QListView>
#include <QMenu>
#include <QToolButton>
#include <QVBoxLayout>

namespace tw {

namespace {

const QString collapsedKey = QStringLiteral("sitesCollapsed");
const QString currentKey = QStringLiteral("currentSiteIndex");

// The theme's icon, else the application's own drawing in the palette's
// colours (the sidebar's: a new palette reaches the sidebar before its
// buttons).
void setButtonIcon(QToolButton* button, const QString& iconName, const QPalette& palette) {
    const QIcon themed = QIcon::fromTheme(iconName);
    button->setIcon(themed.isNull() ? ImageResources::themedIcon(iconName, palette) : themed);
}

// An icon button, with its name for screen readers.
QToolButton* toolButton(const QString& iconName, const QString& name, const QString& toolTip,
                        QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setProperty("iconName", iconName);
    setButtonIcon(button, iconName, parent->palette());
    button->setText(name);
    button->setToolButtonStyle(Qt::ToolButtonIconOnly);
    button->setAccessibleName(name);
    button->setToolTip(toolTip);
    button->setAutoRaise(true);
    return button;
}

class Syncing {
public:
    explicit Syncing(bool& flag)
        : m_flag(flag)
        , m_was(flag) {
        m_flag = true;
    }
    ~Syncing() { m_flag = m_was; }
    Syncing(const Syncing&) = delete;
    Syncing& operator=(const Syncing&) = delete;

private:
    bool& m_flag;
    bool m_was;
};

} // namespace

SitesSidebar::SitesSidebar(UserInteraction& interaction, QWidget* parent)
    : QWidget(parent)
    , m_interaction(interaction)
    , m_model(new SiteListModel(this))
    , m_list(new QListView(this))
    , m_addButton(toolButton(QStringLiteral("list-add"), tr("Add site"), tr("Add a site"), this))
    , m_duplicateButton(
          toolButton(QStringLiteral("edit-copy"), tr("Duplicate site"), tr("Duplicate the site"), this))
    , m_removeButton(
          toolButton(QStringLiteral("list-remove"), tr("Remove site"), tr("Delete the site (Delete)"), this))
    , m_toggleAction(new QAction(tr("Show Sites"), this)) {
    setObjectName(QStringLiteral("sitesSidebar"));
    m_addButton->setObjectName(QStringLiteral("addSiteButton"));
    m_duplicateButton->setObjectName(QStringLiteral("duplicateSiteButton"));
    m_removeButton->setObjectName(QStringLiteral("removeSiteButton"));

    m_list->setObjectName(QStringLiteral("sitesList"));
    m_list->setAccessibleName(tr("Sites"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(new SiteItemDelegate(m_list));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setDragDropMode(QAbstractItemView::InternalMove);
    m_list->setDefaultDropAction(Qt::MoveAction);
    m_list->setDragDropOverwriteMode(false);
    m_list->setDropIndicatorShown(true);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setUniformItemSizes(true);
    m_list->setMinimumWidth(180);

    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(2, 0, 2, 2);
    buttons->setSpacing(2);
    buttons->addWidget(m_addButton);
    buttons->addWidget(m_duplicateButton);
    buttons->addWidget(m_removeButton);
    buttons->addStretch();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(m_list, 1);
    layout->addLayout(buttons);

    m_toggleAction->setObjectName(QStringLiteral("siteCollapseButton"));
    m_toggleAction->setToolTip(tr("Show or hide the list of sites"));
    connect(m_toggleAction, &QAction::triggered, this, &SitesSidebar::toggleSitesView);

    connect(m_addButton, &QToolButton::clicked, this, &SitesSidebar::addSiteRequested);
    connect(m_duplicateButton, &QToolButton::clicked, this, [this] { duplicateSite(currentRow()); });
    connect(m_removeButton, &QToolButton::clicked, this, [this] { removeSite(currentRow()); });
    connect(m_list, &QListView::doubleClicked, this, [this](const QModelIndex& index) {
        if (index.isValid())
            emit editSiteRequested(index.row());
    });
    connect(
        m_list->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
        [this](const QModelIndex& current) { currentRowChanged(current.isValid() ? current.row() : -1); });
    // After any change of the list the selection shows "currentSiteIndex"
    // again (the site list's operations keep it on the same site).
    connect(m_model, &SiteListModel::modelReset, this, &SitesSidebar::selectCurrentSite);
    connect(m_model, &SiteListModel::rowsInserted, this, &SitesSidebar::selectCurrentSite);
    connect(m_model, &SiteListModel::rowsRemoved, this, &SitesSidebar::selectCurrentSite);
    connect(m_model, &SiteListModel::rowsMoved, this, &SitesSidebar::selectCurrentSite);
    connect(&Preferences::instance(), &Preferences::valueChanged, this, [this](const QString& key) {
        if (key == currentKey)
            selectCurrentSite();
        else if (key == collapsedKey)
            applyCollapsed();
    });

    selectCurrentSite();
    applyCollapsed();
}

int SitesSidebar::currentRow() const {
    const QModelIndex current = m_list->selectionModel()->currentIndex();
    return current.isValid() && m_list->selectionModel()->isSelected(current) ? current.row() : -1;
}

void SitesSidebar::selectCurrentSite() {
    Syncing syncing(m_syncing);
    const qsizetype index = SiteListActions::currentIndex();
    if (index >= 0 && index < m_model->rowCount()) {
        const QModelIndex wanted = m_model->index(static_cast<int>(index));
        m_list->selectionModel()->setCurrentIndex(wanted, QItemSelectionModel::ClearAndSelect);
        m_list->scrollTo(wanted);
    } else {
        m_list->selectionModel()->clear();
    }
    updateButtons();
}

void SitesSidebar::currentRowChanged(int row) {
    updateButtons();
    if (m_syncing || row < 0)
        return;
    if (SiteListActions::currentIndex() != row)
        SiteListActions::setCurrentIndex(row);
}

void SitesSidebar::updateButtons() {
    const bool hasSite = currentRow() >= 0;
    m_duplicateButton->setEnabled(hasSite);
    m_removeButton->setEnabled(hasSite);
}

void SitesSidebar::duplicateSite(int row) {
    if (!m_model->siteAt(row))
        return;
    std::optional<int> copy;
    {
        Syncing syncing(m_syncing);
        copy = m_model->duplicateSite(row);
    }
    // The copy becomes the site shown, ready to be renamed.
    if (copy)
        SiteListActions::setCurrentIndex(*copy);
    selectCurrentSite();
}

bool SitesSidebar::removeSite(int row) {
    const SitePtr site = m_model->siteAt(row);
    if (!site)
        return false;
    AlertRequest alert;
    alert.style = AlertStyle::Warning;
    const QString name = site->name.value_or(QString());
    alert.message =
        name.isEmpty() ? tr("Delete this site?") : tr("Delete the site \u201c%1\u201d?").arg(name);
    alert.informativeText = tr("Its settings, scripts and stored password are removed from this computer. "
                               "Nothing on the server is changed.");
    // Cancel first: it is the default button, so Return keeps the site.
    alert.buttons = {tr("Cancel"), tr("Delete")};
    if (m_interaction.runModal(alert) != 1)
        return false;
    bool removed = false;
    {
        Syncing syncing(m_syncing);
        removed = m_model->removeSite(row);
    }
    selectCurrentSite();
    return removed;
}

bool SitesSidebar::isCollapsed() {
    return Preferences::instance().boolValue(collapsedKey);
}

void SitesSidebar::toggleSitesView() {
    Preferences::instance().setBool(collapsedKey, !isCollapsed());
    Preferences::instance().synchronize();
    applyCollapsed();
}

void SitesSidebar::applyCollapsed() {
    const bool collapsed = isCollapsed();
    setVisible(!collapsed);
    m_toggleAction->setIcon(ImageResources::themedIcon(
        collapsed ? QStringLiteral("ui-window-2") : QStringLiteral("ui-window-2-highlight"), palette()));
    m_toggleAction->setText(collapsed ? tr("Show Sites") : tr("Hide Sites"));
}

// A new palette (a dark theme chosen): the own drawings take its colours.
void SitesSidebar::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() != QEvent::PaletteChange)
        return;
    for (QToolButton* button : {m_addButton, m_duplicateButton, m_removeButton})
        setButtonIcon(button, button->property("iconName").toString(), palette());
    applyCollapsed();
}

void SitesSidebar::contextMenuEvent(QContextMenuEvent* event) {
    const QModelIndex index = m_list->indexAt(m_list->viewport()->mapFrom(this, event->pos()));
    QMenu menu(this);
    if (index.isValid()) {
        const int row = index.row();
        menu.addAction(tr("Edit Site\u2026"), this, [this, row] { emit editSiteRequested(row); });
        menu.addAction(tr("Edit Scripts\u2026"), this, [this, row] { emit editScriptsRequested(row); });
        menu.addSeparator();
        menu.addAction(tr("Duplicate"), this, [this, row] { duplicateSite(row); });
        menu.addAction(tr("Delete\u2026"), this, [this, row] { removeSite(row); });
        menu.addSeparator();
    }
    menu.addAction(tr("Add Site\u2026"), this, &SitesSidebar::addSiteRequested);
    menu.exec(event->globalPos());
}

} // namespace tw
