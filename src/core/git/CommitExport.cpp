#include "CommitExport.h"

#include "app/SystemLog.h"
#include "git/TWGit.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

namespace tw {

namespace {

struct Entry {
    QByteArray mode;
    QByteArray object;
};

// "<mode> <type> <object>\t<path>" NUL ..., the blobs of the whole commit.
QHash<QString, Entry> blobsOf(const QByteArray& listing) {
    QHash<QString, Entry> blobs;
    qsizetype start = 0;
    while (start < listing.size()) {
        qsizetype end = listing.indexOf('\0', start);
        if (end < 0)
            end = listing.size();
        const qsizetype tab = listing.indexOf('\t', start);
        if (tab > start && tab < end) {
            const QList<QByteArray> head = listing.mid(start, tab - start).split(' ');
            if (head.size() == 3 && head.at(1) == "blob")
                blobs.insert(QString::fromUtf8(listing.constData() + tab + 1, end - tab - 1),
                             Entry{head.at(0), head.at(2)});
        }
        start = end + 1;
    }
    return blobs;
}

bool isLink(const Entry& entry) {
    return entry.mode == "120000";
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

QByteArray nulJoined(const QStringList& paths) {
    QByteArray bytes;
    for (const QString& path : paths) {
        bytes += path.toUtf8();
        bytes += '\0';
    }
    return bytes;
}

} // namespace

CommitExport::CommitExport()
    : m_folder(
          std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/tarnwell-export-XXXXXX"))) {}

CommitExport::~CommitExport() = default;

QString CommitExport::folder() const {
    return m_folder->path();
}

QString CommitExport::pathOf(const QString& repositoryPath) const {
    return m_folder->path() + QLatin1Char('/') + repositoryPath;
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
    if (!m_folder->isValid())
        return fail(
            QStringLiteral("no private temporary folder could be made (%1)").arg(m_folder->errorString()));
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
    const QHash<QString, Entry> blobs = blobsOf(listing.standardOutput);

    // Files are checked out; a link becomes the file it names in the commit
    // (a few steps, within the commit), checked out too, or keeps its own
    // text when it names nothing there or leads out of the repository.
    QStringList files;
    QSet<QString> seen;
    QHash<QString, QString> linkTargets;  // link path -> the file it leads to
    QHash<QString, QByteArray> linkTexts; // link path -> its own text, when it leads nowhere
    for (const QString& path : paths) {
        const auto found = blobs.constFind(path);
        if (found == blobs.cend())
            return fail(QStringLiteral("%1 is no file of commit %2").arg(path, commit));
        if (seen.contains(path))
            continue;
        seen.insert(path);
        if (!isLink(*found)) {
            files.append(path);
            continue;
        }
        const auto text = [&](const Entry& entry) {
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
            if (!next || !blobs.contains(*next))
                break;
            const Entry entry = blobs.value(*next);
            if (!isLink(entry)) {
                linkTargets.insert(path, *next);
                break;
            }
            const TWGit::Output nextText = text(entry);
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
    QTemporaryDir work(QDir::tempPath() + QStringLiteral("/tarnwell-index-XXXXXX"));
    if (!work.isValid())
        return fail(QStringLiteral("no private temporary folder could be made (%1)").arg(work.errorString()));
    QStringList targets;
    for (const QString& target : std::as_const(linkTargets)) {
        if (!seen.contains(target) && !targets.contains(target))
            targets.append(target);
    }

    QProcessEnvironment index;
    index.insert(QStringLiteral("GIT_INDEX_FILE"), work.filePath(QStringLiteral("index")));
    const TWGit::Output read = git.run({QStringLiteral("read-tree"), commit}, repository, {}, index);
    if (!read.succeeded())
        return fail(QStringLiteral("git could not read commit %1: %2")
                        .arg(commit, QString::fromUtf8(read.standardError).trimmed()));
    const auto checkOut = [&](const QStringList& wanted, const QString& into) {
        if (wanted.isEmpty())
            return true;
        const TWGit::Output written =
            git.run({QStringLiteral("checkout-index"), QStringLiteral("-f"), QStringLiteral("-z"),
                     QStringLiteral("--stdin"), QStringLiteral("--prefix=") + into + QLatin1Char('/')},
                    repository, nulJoined(wanted), index);
        if (!written.succeeded())
            return fail(QStringLiteral("git could not write the files of commit %1: %2")
                            .arg(commit, QString::fromUtf8(written.standardError).trimmed()));
        return true;
    };
    const QString targetsFolder = work.filePath(QStringLiteral("targets"));
    if (!checkOut(files, m_folder->path()) || !checkOut(targets, targetsFolder))
        return false;

    const QDir root(m_folder->path());
    for (auto link = linkTargets.cbegin(); link != linkTargets.cend(); ++link) {
        const QString from = seen.contains(link.value()) ? pathOf(link.value())
                                                         : targetsFolder + QLatin1Char('/') + link.value();
        const QString to = root.filePath(link.key());
        if (!root.mkpath(QFileInfo(to).path()) || !QFile::copy(from, to))
            return fail(QStringLiteral("cannot write %1").arg(to));
    }
    for (auto link = linkTexts.cbegin(); link != linkTexts.cend(); ++link) {
        const QString to = root.filePath(link.key());
        QFile file(to);
        if (!root.mkpath(QFileInfo(to).path()) || !file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(link.value()) != link.value().size())
            return fail(QStringLiteral("cannot write %1").arg(to));
    }
    return true;
}

} // namespace tw
