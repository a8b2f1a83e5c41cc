#include "CommitTree.h"

namespace tw {

QByteArray CommitTree::Entry::indexLine() const {
    return mode + ' ' + object + '\t' + path + '\0';
}

CommitTree::CommitTree(QByteArray listing)
    : m_listing(std::move(listing)) {
    // The keys point into the listing, which the tree keeps unchanged.
    const char* data = m_listing.constData();
    qsizetype start = 0;
    while (start < m_listing.size()) {
        qsizetype end = m_listing.indexOf('\0', start);
        if (end < 0)
            end = m_listing.size();
        const qsizetype tab = m_listing.indexOf('\t', start);
        if (tab > start && tab < end)
            m_lines.insert(QByteArrayView(data + tab + 1, end - tab - 1), start);
        start = end + 1;
    }
}

std::optional<CommitTree::Entry> CommitTree::blob(const QString& path) const {
    const QByteArray key = path.toUtf8();
    const auto found = m_lines.constFind(QByteArrayView(key));
    if (found == m_lines.cend())
        return std::nullopt;
    return entryAt(found.value(), found.key());
}

QList<CommitTree::Entry> CommitTree::attributeFiles() const {
    static const QByteArray name = QByteArrayLiteral(".gitattributes");
    static const QByteArray inFolder = QByteArrayLiteral("/.gitattributes");
    QList<Entry> files;
    for (auto line = m_lines.cbegin(); line != m_lines.cend(); ++line) {
        const QByteArrayView path = line.key();
        if (path == name || path.endsWith(inFolder)) {
            if (std::optional<Entry> entry = entryAt(line.value(), path))
                files.append(*entry);
        }
    }
    return files;
}

std::optional<CommitTree::Entry> CommitTree::entryAt(qsizetype start, QByteArrayView path) const {
    const qsizetype tab = m_listing.indexOf('\t', start);
    QList<QByteArrayView> fields;
    qsizetype field = start;
    for (qsizetype at = start; at <= tab; ++at) {
        if (at == tab || m_listing.at(at) == ' ') {
            if (at > field)
                fields.append(QByteArrayView(m_listing.constData() + field, at - field));
            field = at + 1;
        }
    }
    if (fields.size() < 3 || fields.size() > 4 || fields.at(1) != "blob")
        return std::nullopt;
    Entry entry;
    entry.mode = fields.at(0).toByteArray();
    entry.object = fields.at(2).toByteArray();
    if (fields.size() == 4)
        entry.size = fields.at(3).toLongLong();
    entry.path = path.toByteArray();
    return entry;
}

} // namespace tw
