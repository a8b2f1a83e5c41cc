#pragma once

#include "model/Site.h"

#include <QString>

#include <optional>

namespace tw::cli {

// The site a command works on, named by its name or index on the command
// line, or the current site when none is named.
//
// The deploy controller works on the current site ("currentSiteIndex") and
// saves the deployed site back at that index. A command that runs the
// controller for a site other than the current one makes it current for as
// long as the selection lives and then selects the previous site again.
class SiteSelection {
public:
    // Finds the site. When there is none, says why on standard error (no
    // sites, no such name or index, no current site) and answers nothing.
    static std::optional<qsizetype> resolve(const QString& nameOrIndex);
    // The stored site at the index (null when there is none).
    static SitePtr siteAt(qsizetype index);
    // "0 “Blog”": how the command line names a site in its messages.
    static QString describe(qsizetype index, const SitePtr& site);

    explicit SiteSelection(qsizetype index);
    ~SiteSelection();
    SiteSelection(const SiteSelection&) = delete;
    SiteSelection& operator=(const SiteSelection&) = delete;

    qsizetype index() const { return m_index; }

private:
    qsizetype m_index;
    std::optional<qsizetype> m_previous;
};

} // namespace tw::cli
