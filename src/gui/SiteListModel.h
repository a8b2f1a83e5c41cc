#pragma once

#include "model/Site.h"

#include <QAbstractListModel>

#include <optional>

namespace tw {

// The stored site list as a list model: one row per site, in the person's
// order. Every change goes through the site list's own operations
// (SiteListActions), so it is stored at once and "currentSiteIndex" keeps
// naming the same site. When the stored list changes elsewhere (an import,
// an editor, a deployment that saved its site), the model reads it again.
// Rows can be reordered by drag and drop.
class SiteListModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        HostRole = Qt::UserRole + 1,
        SiteIdRole,
        IsValidRole,
    };

    explicit SiteListModel(QObject* parent = nullptr);

    // Reads the stored list again (a reset).
    void reload();
    SitePtr siteAt(int row) const;
    const SiteList& sites() const { return m_sites; }

    // Appends a new site (stamped with updatedNow); answers its row.
    int addSite(const SitePtr& site);
    // A copy after the original, with its own id and the same secrets.
    std::optional<int> duplicateSite(int row);
    // Removes the site and its stored secrets.
    bool removeSite(int row);
    // Moves a site so that it ends up at row to.
    bool moveSite(int from, int to);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    // One row at a time; destinationChild as Qt counts it (before the move).
    bool moveRows(const QModelIndex& sourceParent, int sourceRow, int count,
                  const QModelIndex& destinationParent, int destinationChild) override;

    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    static QString mimeType() { return QStringLiteral("application/x-tarnwell-site-row"); }

private:
    void loadFromStore();
    std::optional<int> draggedRow(const QMimeData* data) const;

    SiteList m_sites;
    bool m_writing = false; // our own change of "sites" is under way
};

} // namespace tw
