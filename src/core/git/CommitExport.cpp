#include "CommitExport.h"

#include "app/SystemLog.h"
#include "git/CommitTree.h"
#include "git/TWGit.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QStorageInfo>

namespace tw {

namespace {

// At most this much goes to a memory-backed folder, and at most a quarter of
// its free space.
constexpr qint64 mostInMemory = qint64(256) * 1024 * 1024;

bool isMemoryBacked(const QString& folder) {
    const QStorageInfo storage(folder);
    return storage.isValid() && storage.isReady() && !storage.isReadOnly() &&
           storage.fileSystemType() == "tmpfs";
}

// Whether a content filter (large-file storage and the like) applies to any
// of the paths, by the attributes of the commit (in its private index): it
// can make a file of a few bytes in the commit a large one in the export.
bool anyFiltered(const TWGit& git, const QString& repository, const QStringList& paths,
                 const QProcessEnvironment& index) {
    QByteArray input;
    for (const QString& path : paths)
        input += path.toUtf8() + '\0';
    const TWGit::Output answer =
        git.run({QStringLiteral("check-attr"), QStringLiteral("--cached"), QStringLiteral("-z"),
                 QStringLiteral("--stdin"), QStringLiteral("filter")},
                repository, input, index);
    if (!answer.succeeded())
        return true;
    // "<path> NUL filter NUL <value> NUL" for each path.
    const QList<QByteArray> fields = answer.standardOutput.split('\0');
    for (qsizetype value = 2; value < fields.size(); value += 3) {
        if (fields.at(value) != "unspecified" && fields.at(value) != "unset")
            return true;
    }
    return false;
}

// A private index that holds the files to write and the commit's attribute
// files (a checkout reads those; the working folder's may differ).
bool readIndex(const TWGit& git, const QString& repository, const CommitTree& tree,
               const QList<CommitTree::Entry>& files, const QProcessEnvironment& index, QString* problem) {
    QByteArray entries;
    for (const QList<CommitTree::Entry>& list : {files, tree.attributeFiles()}) {
        for (const CommitTree::Entry& entry : list)
            entries += entry.indexLine();
    }
    const TWGit::Output read =
        git.run({QStringLiteral("update-index"), QStringLiteral("-z"), QStringLiteral("--index-info")},
                repository, entries, index);
    if (!read.succeeded())
        *problem = QStringLiteral("git could not read the files of the commit: %1")
                       .arg(QString::fromUtf8(read.standardError).trimmed());
    return read.succeeded();
}

// git writes the files of the private index into a folder, as a checkout.
// Its work tree is an empty folder of ours: a checkout of single files reads
// the attributes of the work tree first, and the repository's working folder
// may hold other ones than the commit.
bool checkOutInto(const TWGit& git, const QString& repository, const QList<CommitTree::Entry>& files,
                  const QString& folder, const QProcessEnvironment& index, const QString& emptyTree,
                  QString* problem) {
    if (files.isEmpty())
        return true;
    QByteArray names;
    for (const CommitTree::Entry& entry : files)
        names += entry.path + '\0';
    const TWGit::Output written =
        git.run({QStringLiteral("--work-tree=") + emptyTree, QStringLiteral("checkout-index"),
                 QStringLiteral("-f"), QStringLiteral("-z"), QStringLiteral("--stdin"),
                 QStringLiteral("--prefix=") + folder + QLatin1Char('/')},
                repository, names, index);
    if (!written.succeeded())
        *problem = QStringLiteral("git could not write the files of the commit: %1")
                       .arg(QString::fromUtf8(written.standardError).trimmed());
    return written.succeeded();
}

// The path a link's text names, seen from the link's folder, within the
// commit; nothing when it leads out of it.
std::optional<QString> linkTarget(const QString& linkPath, const QByteArray& text) {
    const QString target = QString::fromUtf8(text);
    if (target.startsWith(QLatin1Char('/')))
        return std::nullopt;
    const qsizetype slash = linkPath.lastIndexOf(QLatin1Char('/'));
    QStringList pieces = slash < 0 ? QStringList() : linkPath.left(slash).split(QLatin1Char('/'));
    for (const QString& piece : target.split(QLatin1Char('/'))) {
        if (piece.isEmpty() || piece == u".")
            continue;
        if (piece == u"..") {
            if (pieces.isEmpty())
                return std::nullopt;
            pieces.removeLast();
        } else {
            pieces.append(piece);
        }
    }
    return pieces.join(QLatin1Char('/'));
}

} // namespace

CommitExport::CommitExport() = default;

CommitExport::~CommitExport() = default;

QString CommitExport::folder() const {
    return m_folder ? m_folder->path() : QString();
}

QString CommitExport::pathOf(const QString& repositoryPath) const {
    return folder() + QLatin1Char('/') + repositoryPath;
}

QStringList CommitExport::places() {
    QStringList places;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    for (const QString& folder : {runtime, QStringLiteral("/dev/shm")}) {
        if (!folder.isEmpty() && QFileInfo(folder).isDir() && QFileInfo(folder).isWritable() &&
            isMemoryBacked(folder) && !places.contains(folder))
            places.append(folder);
    }
    places.append(QDir::tempPath());
    return places;
}

QString CommitExport::folderPrefix() {
    return QStringLiteral("tarnwell-export-%1-").arg(QCoreApplication::applicationPid());
}

// The files are written by git's own checkout (checkout-index from a private
// index of the commit): content filters such as large-file storage's smudge
// filter, end-of-line attributes and the like apply as they do in a checkout,
// and the names go to git NUL-separated, whatever they hold. The repository's
// own index is never touched.
bool CommitExport::write(const QString& repository, const QString& commit, const QStringList& paths,
                         QString* error) {
    const auto fail = [error](const QString& text) {
        if (error)
            *error = text;
        SystemLog::write(QStringLiteral("TARNWELL - export: ") + text);
        return false;
    };
    if (!TWGit::isAcceptableCommitId(commit))
        return fail(QStringLiteral("'%1' is no commit id").arg(commit));
    if (paths.isEmpty())
        return true;

    const TWGit git;
    const TWGit::Output listing = git.run({QStringLiteral("ls-tree"), QStringLiteral("-r"),
                                           QStringLiteral("-z"), QStringLiteral("--full-tree"), commit},
                                          repository);
    if (!listing.succeeded())
        return fail(QStringLiteral("git could not list commit %1: %2")
                        .arg(commit, QString::fromUtf8(listing.standardError).trimmed()));
    const CommitTree tree(listing.standardOutput);

    // Files are checked out; a link becomes the file it names in the commit
    // (a few steps, within the commit), checked out too, or keeps its own
    // text when it names nothing there or leads out of the repository.
    QList<CommitTree::Entry> files;
    QSet<QString> seen;
    QHash<QString, QString> linkTargets;  // link path -> the file it leads to
    QHash<QString, QByteArray> linkTexts; // link path -> its own text, when it leads nowhere
    for (const QString& path : paths) {
        const std::optional<CommitTree::Entry> found = tree.blob(path);
        if (!found)
            return fail(QStringLiteral("%1 is no file of commit %2").arg(path, commit));
        if (seen.contains(path))
            continue;
        seen.insert(path);
        if (!found->isLink()) {
            files.append(*found);
            continue;
        }
        const auto text = [&](const CommitTree::Entry& entry) {
            return git.run(
                {QStringLiteral("cat-file"), QStringLiteral("blob"), QString::fromLatin1(entry.object)},
                repository);
        };
        const TWGit::Output own = text(*found);
        if (!own.succeeded())
            return fail(QStringLiteral("git could not read the link %1 of commit %2").arg(path, commit));
        QString current = path;
        QByteArray currentText = own.standardOutput;
        for (int step = 0; step < 8; ++step) {
            const std::optional<QString> next = linkTarget(current, currentText);
            const std::optional<CommitTree::Entry> entry = next ? tree.blob(*next) : std::nullopt;
            if (!entry)
                break;
            if (!entry->isLink()) {
                linkTargets.insert(path, *next);
                break;
            }
            const TWGit::Output nextText = text(*entry);
            if (!nextText.succeeded())
                break;
            current = *next;
            currentText = nextText.standardOutput;
        }
        if (!linkTargets.contains(path))
            linkTexts.insert(path, own.standardOutput);
    }

    // The link targets that were not asked for go to a folder of their own,
    // beside the private index.
    QList<CommitTree::Entry> targets;
    QSet<QString> targeted;
    for (const QString& target : std::as_const(linkTargets)) {
        if (!seen.contains(target) && !targeted.contains(target)) {
            targeted.insert(target);
            targets.append(*tree.blob(target));
        }
    }
    // The size, as far as the choice of folder goes, is the working folder's:
    // git would open every object for it ("ls-tree -l"), a tenth of a second
    // for a few thousand new files. Should the estimate be short, a full
    // memory-backed folder makes the checkout fail there and go to disk.
    qint64 size = 0;
    QStringList written;
    for (const CommitTree::Entry& entry : std::as_const(files)) {
        written.append(QString::fromUtf8(entry.path));
        size += QFileInfo(repository + QLatin1Char('/') + written.last()).size();
    }

    // The private index, and the link targets not asked for, in the
    // temporary folder.
    QTemporaryDir work(QDir::tempPath() + QLatin1Char('/') + folderPrefix() + QStringLiteral("index-XXXXXX"));
    if (!work.isValid())
        return fail(QStringLiteral("no private temporary folder could be made (%1)").arg(work.errorString()));
    QProcessEnvironment index;
    index.insert(QStringLiteral("GIT_INDEX_FILE"), work.filePath(QStringLiteral("index")));
    QString problem;
    const QString emptyTree = work.filePath(QStringLiteral("tree"));
    if (!QDir().mkpath(emptyTree))
        return fail(QStringLiteral("no private temporary folder could be made (%1)").arg(emptyTree));
    if (!readIndex(git, repository, tree, files + targets, index, &problem))
        return fail(problem);

    // In memory when the files are small beside the free space there and no
    // filter can make them larger; where that fails (full after all), on disk.
    const QStringList candidates = places();
    std::optional<bool> memoryAllowed;
    for (qsizetype place = 0; place < candidates.size() && !m_folder; ++place) {
        const QString& where = candidates.at(place);
        if (place < candidates.size() - 1) {
            if (size > std::min(mostInMemory, QStorageInfo(where).bytesAvailable() / 4))
                continue;
            if (!memoryAllowed)
                memoryAllowed = !anyFiltered(git, repository, written, index);
            if (!*memoryAllowed)
                continue;
        }
        m_folder = std::make_unique<QTemporaryDir>(where + QLatin1Char('/') + folderPrefix() +
                                                   QStringLiteral("XXXXXX"));
        if (!m_folder->isValid())
            problem = QStringLiteral("no private temporary folder could be made in %1 (%2)")
                          .arg(where, m_folder->errorString());
        else if (checkOutInto(git, repository, files, m_folder->path(), index, emptyTree, &problem))
            break;
        m_folder.reset();
    }
    if (!m_folder)
        return fail(problem);
    const QString targetsFolder = work.filePath(QStringLiteral("targets"));
    if (!checkOutInto(git, repository, targets, targetsFolder, index, emptyTree, &problem) ||
        !writeLinks(linkTargets, linkTexts, seen, targetsFolder, &problem)) {
        m_folder.reset();
        return fail(problem);
    }
    return true;
}

// A link becomes a copy of the file it leads to, or its own text.
bool CommitExport::writeLinks(const QHash<QString, QString>& linkTargets,
                              const QHash<QString, QByteArray>& linkTexts, const QSet<QString>& exported,
                              const QString& targetsFolder, QString* problem) const {
    const QDir root(m_folder->path());
    for (auto link = linkTargets.cbegin(); link != linkTargets.cend(); ++link) {
        const QString from = exported.contains(link.value())
                                 ? pathOf(link.value())
                                 : targetsFolder + QLatin1Char('/') + link.value();
        const QString to = root.filePath(link.key());
        if (!root.mkpath(QFileInfo(to).path()) || !QFile::copy(from, to)) {
            *problem = QStringLiteral("cannot write %1").arg(to);
            return false;
        }
    }
    for (auto link = linkTexts.cbegin(); link != linkTexts.cend(); ++link) {
        const QString to = root.filePath(link.key());
        QFile file(to);
        if (!root.mkpath(QFileInfo(to).path()) || !file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(link.value()) != link.value().size()) {
            *problem = QStringLiteral("cannot write %1").arg(to);
            return false;
        }
    }
    return true;
}

} // namespace tw
