#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QString>

#include <optional>

namespace tw {

// The files of one commit as "git ls-tree -r -z --full-tree" lists them
// ("<mode> <type> <object>\t<path>" NUL ..., with "-l" also the size, padded
// with blanks), looked up by path. A listing of a hundred thousand files is read
// once; an entry is taken apart only when it is asked for.
class CommitTree {
public:
    struct Entry {
        QByteArray mode;
        QByteArray object;
        qint64 size = -1; // when the listing has sizes
        QByteArray path;  // as git gave it (UTF-8)

        bool isLink() const { return mode == "120000"; }
        // The entry as "git update-index -z --index-info" reads it.
        QByteArray indexLine() const;
    };

    explicit CommitTree(QByteArray listing);

    // The file (or link) at a path of the commit; nothing for a folder, a
    // submodule or a path the commit does not hold.
    std::optional<Entry> blob(const QString& path) const;
    // Every ".gitattributes" file of the commit: a checkout reads them for
    // the files it writes.
    QList<Entry> attributeFiles() const;

private:
    std::optional<Entry> entryAt(qsizetype start, QByteArrayView path) const;

    QByteArray m_listing;
    QHash<QByteArrayView, qsizetype> m_lines; // path -> where its line starts
};

} // namespace tw
