#include "SiteManager.h"

#include "app/Logger.h"
#include "app/Preferences.h"
#include "app/SystemLog.h"
#include "model/SecurityBookmarkManager.h"
#include "model/Sites.h"
#include "model/SyncRoot.h"

#include <QFileInfo>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace tw {

namespace {

// The paths of the ignored entries, in list order. Entries without a path
// ignore nothing; an entry with an empty path ignores everything.
QStringList ignoredPrefixes(const Site& site) {
    QStringList prefixes;
    if (!site.ignoredFiles)
        return prefixes;
    prefixes.reserve(site.ignoredFiles->size());
    for (const FilePtr& entry : *site.ignoredFiles) {
        if (entry && entry->pathWithFilename)
            prefixes.append(*entry->pathWithFilename);
    }
    return prefixes;
}

bool beginsWithAny(QStringView path, const QStringList& prefixes) {
    for (const QString& prefix : prefixes) {
        if (path.startsWith(prefix))
            return true;
    }
    return false;
}

// A sync root is a folder: the folder part must lie in it as whole
// folders (see SyncRoot), not merely begin with its text.
bool testAgainstSyncRoot(const QString& folderPart, const SyncRoot& syncRoot, const QString& written) {
    const bool inside = syncRoot.contains(folderPart);
    SystemLog::write(folderPart + QStringLiteral(" -- ") + written + QStringLiteral(" -- (") +
                     (inside ? QLatin1Char('1') : QLatin1Char('0')) + QLatin1Char(')'));
    return inside;
}

// The change letters git prints most share one text instead of making one
// per line.
const QString addedLetter = QStringLiteral("A");
const QString modifiedLetter = QStringLiteral("M");
const QString deletedLetter = QStringLiteral("D");

QString changeLetter(QStringView letter) {
    if (letter.size() == 1) {
        switch (letter.front().unicode()) {
        case u'A':
            return addedLetter;
        case u'M':
            return modifiedLetter;
        case u'D':
            return deletedLetter;
        default:
            break;
        }
    }
    return letter.toString();
}

// The folder part of the current run of files, made once per folder.
struct FolderText {
    QString text = QStringLiteral("");
    qsizetype longestPart = 0;

    void moveTo(QStringView folder) {
        if (folder.size() == text.size() &&
            std::memcmp(folder.utf16(), text.constData(), size_t(folder.size()) * sizeof(char16_t)) == 0)
            return;
        text = folder.toString();
        longestPart = 0;
        for (const QStringView part : folder.tokenize(QLatin1Char('/')))
            longestPart = std::max(longestPart, part.size());
    }

    // Whether the name (which holds no slash) occurs in the folder text:
    // it can only lie within one of the folder's parts.
    bool holds(QStringView name) const {
        if (name.isEmpty() || name.size() > longestPart)
            return false;
        const std::u16string_view haystack(QStringView(text).utf16(), size_t(text.size()));
        return haystack.find(std::u16string_view(name.utf16(), size_t(name.size()))) !=
               std::u16string_view::npos;
    }
};

// A text for a log line: control characters shown as \uXXXX, so a name
// cannot start a line of its own.
QString printable(const QString& text) {
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f || c.category() == QChar::Other_Control)
            out +=
                QStringLiteral("\\u") + QString::number(c.unicode(), 16).rightJustified(4, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

// Characters the shell treats specially in an unquoted word, beyond those
// git already refuses in a branch name.
constexpr QStringView shellMetacharacters = u"|&;<>()$`\\\"'*?[]#~{}!";
// Characters git refuses anywhere in a branch name.
constexpr QStringView refusedByGit = u" ~^:?*[\\";

} // namespace

SiteManager::SiteManager(SitePtr managedSite)
    : site(std::move(managedSite)) {}

std::optional<QString> SiteManager::resolveBookmark() const {
    // Without a sandbox the folder is localPath itself: encoding it as a
    // location and decoding it again gives the same text back.
    if (!site || !site->localPath || site->localPath->isEmpty())
        return std::nullopt;
    return site->localPath;
}

void SiteManager::stopAccessingSecurityScopedResource(const QString&) const {}

bool SiteManager::isGitDirectory() const {
    if (!site || !site->localPath)
        return false;
    return TWGit::isGitDirectory(*site->localPath);
}

bool SiteManager::isRepoDirty() const {
    const auto folder = resolveBookmark();
    if (!folder)
        return false;
    const bool dirty = git.isRepoDirtyAtPath(*folder);
    stopAccessingSecurityScopedResource(*folder);
    return dirty;
}

QStringList SiteManager::uncommittedPaths() const {
    const auto folder = resolveBookmark();
    if (!folder)
        return {};
    QStringList paths = git.uncommittedPaths(*folder);
    stopAccessingSecurityScopedResource(*folder);
    return paths;
}

std::optional<QString> SiteManager::currentBranch() const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    auto branch = git.currentBranch(*folder);
    stopAccessingSecurityScopedResource(*folder);
    return branch;
}

std::optional<QString> SiteManager::headCommit() const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    auto id = git.headCommit(*folder);
    stopAccessingSecurityScopedResource(*folder);
    return id;
}

bool SiteManager::commitExists(const QString& commitId) const {
    const auto folder = resolveBookmark();
    if (!folder)
        return false;
    const bool exists = git.commitExists(*folder, commitId);
    stopAccessingSecurityScopedResource(*folder);
    return exists;
}

std::optional<BranchSummary> SiteManager::getBranches() const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    auto branches = git.getBranchesAtPath(*folder);
    SecurityBookmarkManager::stopAccessingSecurityScopedResource(*folder);
    return branches;
}

std::optional<CommitList> SiteManager::getCommits() const {
    return getCommits(QStringLiteral("HEAD"));
}

std::optional<CommitList> SiteManager::getCommits(const QString& tip) const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    auto commits = git.getCommitsAtPath(*folder, tip);
    stopAccessingSecurityScopedResource(*folder);
    return commits;
}

std::optional<QStringList> SiteManager::changedPathsBetween(const QString& fromCommit,
                                                            const QString& toCommit) const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    auto lines = git.loadFilesAtPath(*folder, fromCommit, toCommit);
    stopAccessingSecurityScopedResource(*folder);
    return lines;
}

std::optional<FileList> SiteManager::loadFilesFromCommit(const QString& commit) const {
    return loadFilesFromCommit(commit, QStringLiteral("HEAD"));
}

std::optional<FileList> SiteManager::loadFilesFromCommit(const QString& commit,
                                                         const QString& toCommit) const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    const auto lines = git.loadFilesAtPath(*folder, commit, toCommit);
    stopAccessingSecurityScopedResource(*folder);
    return lines ? createFileObjects(*lines) : FileList();
}

std::optional<FileList> SiteManager::getAllFiles() const {
    return getAllFiles(QStringLiteral("HEAD"));
}

std::optional<FileList> SiteManager::getAllFiles(const QString& commit) const {
    const auto folder = resolveBookmark();
    if (!folder)
        return std::nullopt;
    const auto paths = git.getAllFileAtPath(*folder, commit);
    stopAccessingSecurityScopedResource(*folder);
    if (!paths)
        return FileList();
    // With their letter: a bare path is cut at a tab it may hold.
    QStringList entries;
    entries.reserve(paths->size());
    for (const QString& path : *paths)
        entries.append(QStringLiteral("A\t") + path);
    return createFileObjects(entries);
}

void SiteManager::checkoutBranch(const QString& branchName) const {
    const auto folder = resolveBookmark();
    if (!folder)
        return;
    QString why;
    if (!isAcceptableBranchName(branchName, &why)) {
        SystemLog::write(QStringLiteral("TARNWELL - refused to check out the branch '") +
                         printable(branchName) + QStringLiteral("': ") + why);
        stopAccessingSecurityScopedResource(*folder);
        return;
    }
    git.checkout(*folder, branchName);
    stopAccessingSecurityScopedResource(*folder);
}

bool SiteManager::localPathExists() const {
    const auto folder = resolveBookmark();
    if (!folder)
        return false;
    const bool exists = QFileInfo::exists(*folder);
    SecurityBookmarkManager::stopAccessingSecurityScopedResource(*folder);
    return exists;
}

FileList SiteManager::createFileObjects(const QStringList& lines) const {
    FileList files;
    if (!site)
        return files;
    const QStringList prefixes = ignoredPrefixes(*site);
    for (const QString& prefix : prefixes) {
        if (prefix.isEmpty())
            return files; // every path begins with the empty text
    }
    const SyncRoot syncRoot = SyncRoot::of(*site);
    const QString syncRootText = site->syncRootPath.value_or(QString());
    files.reserve(lines.size());

    // Consecutive files of one folder share their folder text. Files at the
    // top share the empty text.
    FolderText folder;
    for (const QString& line : lines) {
        if (line.isEmpty())
            continue;

        // The path is everything after the first tab: names may hold tabs.
        const qsizetype tab = line.indexOf(QLatin1Char('\t'));
        // A bare path is shared with the line, not copied.
        QString path = tab < 0 ? line : line.mid(tab + 1);

        // An ignored entry is a File record and never the path text itself, so
        // only the prefix test can match.
        if (!prefixes.isEmpty() && beginsWithAny(path, prefixes))
            continue;

        const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
        QString name = path.sliced(slash + 1);
        // The folder part is the path with every occurrence of the name
        // removed. When the name does not occur before the last slash, that is
        // simply everything up to and including the slash.
        folder.moveTo(QStringView(path).first(slash + 1));
        QString folderPart = folder.holds(name) ? File::pathOnlyFor(path, name) : folder.text;
        // The sync root is tested against the path's real folder: the folder
        // part above is display text, with every occurrence of the name cut.
        if (!syncRoot.isWholeRepository() && !testAgainstSyncRoot(folder.text, syncRoot, syncRootText))
            continue;

        auto file = std::make_shared<File>();
        file->name = std::move(name);
        file->gitStatus = tab < 0 ? addedLetter : changeLetter(QStringView(line).first(tab));
        file->willUpload = true;
        file->pathWithFilename = std::move(path);
        file->pathOnly = std::move(folderPart);
        files.append(std::move(file));
    }
    return files;
}

bool SiteManager::isIgnoredFile(const QString& path) const {
    // The list holds File records, which never equal the path text itself;
    // only the prefix test decides.
    if (!site)
        return false;
    return beginsWithAny(path, ignoredPrefixes(*site));
}

bool SiteManager::isInsideSyncRoot(const QString& folderPart) const {
    if (!site)
        return true;
    const SyncRoot syncRoot = SyncRoot::of(*site);
    if (syncRoot.isWholeRepository())
        return true;
    return testAgainstSyncRoot(folderPart, syncRoot, site->syncRootPath.value_or(QString()));
}

std::optional<SiteList> SiteManager::loadAllSites() const {
    return Sites().loadAll();
}

SitePtr SiteManager::loadCurrentSite() const {
    const auto sites = loadAllSites();
    if (!sites)
        return nullptr;
    const qint64 index = Preferences::instance().integerValue(QStringLiteral("currentSiteIndex"));
    // Compared as unsigned numbers: a negative index is far beyond the end.
    if (static_cast<quint64>(index) < static_cast<quint64>(sites->size()))
        return sites->at(static_cast<qsizetype>(index));
    return nullptr;
}

std::optional<QString> SiteManager::tryRecoverBookmark(const QString& folder) {
    // A bookmark of the given folder is made only to prove it can be
    // reached; it is not kept.
    if (!SecurityBookmarkManager::bookmarkFor(folder)) {
        fail(SiteManagerError::CannotBookmarkFolder,
             QStringLiteral("Could not make a bookmark of the folder ") + folder);
        return std::nullopt;
    }
    std::optional<SecurityBookmarkManager::Resolved> resolved;
    if (site && site->bookmarkData)
        resolved = SecurityBookmarkManager::resolve(*site->bookmarkData);
    if (!resolved) {
        fail(SiteManagerError::CannotResolveBookmark,
             QStringLiteral("Could not read the folder bookmark of the site"));
        return std::nullopt;
    }
    if (resolved->isStale) {
        Logger::sharedInstance().log(QStringLiteral("The folder bookmark is stale: ") + resolved->path);
        if (delegate)
            delegate->fileBookmarkIsStale();
        return std::nullopt;
    }
    return resolved->path;
}

void SiteManager::fail(SiteManagerError code, const QString& description) {
    Logger::sharedInstance().log(description);
    if (delegate)
        delegate->siteManagerDidFailWithError(Error::application(static_cast<qint64>(code), description));
}

bool SiteManager::isAcceptableBranchName(const QString& branchName, QString* why) {
    auto refuse = [why](const QString& reason) {
        if (why)
            *why = reason;
        return false;
    };
    if (branchName.isEmpty())
        return refuse(QStringLiteral("the name is empty"));
    if (!QStringView(branchName).isValidUtf16())
        return refuse(QStringLiteral("the name is not valid text"));
    if (branchName.startsWith(QLatin1Char('-')))
        return refuse(QStringLiteral("a branch name cannot begin with a dash"));
    if (branchName == u"HEAD")
        return refuse(QStringLiteral("the name HEAD is reserved by git"));

    for (const QChar c : branchName) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u == 0x7f || c.category() == QChar::Other_Control)
            return refuse(QStringLiteral("the name holds a control character"));
        if (c.isSpace())
            return refuse(QStringLiteral("the name holds white space"));
        if (refusedByGit.contains(c))
            return refuse(QStringLiteral("git does not allow '") + c + QStringLiteral("' in a branch name"));
        if (shellMetacharacters.contains(c))
            return refuse(QStringLiteral("the name holds the shell metacharacter '") + c + QLatin1Char('\''));
    }

    if (branchName.contains(QStringLiteral("..")))
        return refuse(QStringLiteral("git does not allow '..' in a branch name"));
    if (branchName.contains(QStringLiteral("@{")))
        return refuse(QStringLiteral("git does not allow '@{' in a branch name"));
    if (branchName.startsWith(QLatin1Char('/')) || branchName.endsWith(QLatin1Char('/')) ||
        branchName.contains(QStringLiteral("//")))
        return refuse(QStringLiteral("git does not allow an empty part between slashes"));
    if (branchName.endsWith(QLatin1Char('.')))
        return refuse(QStringLiteral("a branch name cannot end with a dot"));

    for (const QStringView part : QStringView(branchName).tokenize(QLatin1Char('/'))) {
        if (part.startsWith(QLatin1Char('.')))
            return refuse(QStringLiteral("a part of a branch name cannot begin with a dot"));
        if (part.endsWith(QStringLiteral(".lock")))
            return refuse(QStringLiteral("a part of a branch name cannot end with '.lock'"));
    }
    return true;
}

} // namespace tw
