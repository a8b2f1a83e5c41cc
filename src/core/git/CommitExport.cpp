#include "CommitExport.h"

#include "app/SystemLog.h"
#include "git/TWGit.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QProcess>

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

// Reads "<object> <type> <size>\n<content>\n" records of cat-file --batch.
class BatchReader {
public:
    explicit BatchReader(QProcess& process)
        : m_process(process) {}

    // The next record's content, or nothing when the stream ended or broke.
    std::optional<QByteArray> next() {
        qsizetype lineEnd;
        while ((lineEnd = m_buffer.indexOf('\n', m_offset)) < 0) {
            if (!fill())
                return std::nullopt;
        }
        const QList<QByteArray> header = m_buffer.mid(m_offset, lineEnd - m_offset).split(' ');
        m_offset = lineEnd + 1;
        if (header.size() != 3)
            return std::nullopt; // "<object> missing"
        bool ok = false;
        const qsizetype size = header.at(2).toLongLong(&ok);
        if (!ok || size < 0)
            return std::nullopt;
        while (m_buffer.size() - m_offset < size + 1) {
            if (!fill())
                return std::nullopt;
        }
        QByteArray content = m_buffer.mid(m_offset, size);
        m_offset += size + 1;
        if (m_offset > (1 << 20)) {
            m_buffer.remove(0, m_offset);
            m_offset = 0;
        }
        return content;
    }

private:
    bool fill() {
        if (m_process.bytesAvailable() == 0 && !m_process.waitForReadyRead(-1))
            return false;
        m_buffer.append(m_process.readAllStandardOutput());
        return true;
    }

    QProcess& m_process;
    QByteArray m_buffer;
    qsizetype m_offset = 0;
};

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

    // The object each path is exported from; links are followed (a few
    // steps, within the commit) on the second pass, once their text is known.
    QList<QByteArray> objects;
    objects.reserve(paths.size());
    for (const QString& path : paths) {
        const auto found = blobs.constFind(path);
        if (found == blobs.cend())
            return fail(QStringLiteral("%1 is no file of commit %2").arg(path, commit));
        objects.append(found->object);
    }

    QProcess catFile;
    catFile.setProgram(TWGit::gitPath());
    catFile.setArguments(TWGit::fixedOptions() +
                         QStringList{QStringLiteral("cat-file"), QStringLiteral("--batch")});
    catFile.setWorkingDirectory(repository);
    catFile.setProcessEnvironment(TWGit::environment());
    catFile.start(QIODevice::ReadWrite);
    if (!catFile.waitForStarted(-1))
        return fail(QStringLiteral("git could not be started: ") + catFile.errorString());
    QByteArray request;
    for (const QByteArray& object : std::as_const(objects))
        request += object + '\n';
    catFile.write(request);
    catFile.closeWriteChannel();

    BatchReader reader(catFile);
    const QDir root(m_folder->path());
    QHash<QString, QByteArray> links; // path -> link text, resolved below
    for (qsizetype i = 0; i < paths.size(); ++i) {
        const std::optional<QByteArray> content = reader.next();
        if (!content) {
            catFile.kill();
            catFile.waitForFinished();
            return fail(QStringLiteral("git could not read %1 of commit %2").arg(paths.at(i), commit));
        }
        if (blobs.value(paths.at(i)).mode == "120000")
            links.insert(paths.at(i), *content);
        const QString target = root.filePath(paths.at(i));
        if (!root.mkpath(QFileInfo(target).path()))
            return fail(QStringLiteral("cannot make the folder of %1").arg(target));
        QFile file(target);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(*content) != content->size())
            return fail(QStringLiteral("cannot write %1: %2").arg(target, file.errorString()));
    }
    catFile.waitForFinished(-1);

    // A link becomes the file it names in the commit; its own text stays
    // when it names nothing there (or leads out of the repository).
    for (auto link = links.cbegin(); link != links.cend(); ++link) {
        QString current = link.key();
        QByteArray text = link.value();
        std::optional<QByteArray> object;
        for (int step = 0; step < 8; ++step) {
            const std::optional<QString> next = linkTarget(current, text);
            if (!next || !blobs.contains(*next))
                break;
            const Entry entry = blobs.value(*next);
            if (entry.mode != "120000") {
                object = entry.object;
                break;
            }
            const TWGit::Output nextText = git.run(
                {QStringLiteral("cat-file"), QStringLiteral("blob"), QString::fromLatin1(entry.object)},
                repository);
            if (!nextText.succeeded())
                break;
            current = *next;
            text = nextText.standardOutput;
        }
        if (!object)
            continue;
        const TWGit::Output content = git.run(
            {QStringLiteral("cat-file"), QStringLiteral("blob"), QString::fromLatin1(*object)}, repository);
        if (!content.succeeded())
            return fail(QStringLiteral("git could not read the file %1 links to").arg(link.key()));
        QFile file(root.filePath(link.key()));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(content.standardOutput) != content.standardOutput.size())
            return fail(QStringLiteral("cannot write %1").arg(file.fileName()));
    }
    return true;
}

} // namespace tw
