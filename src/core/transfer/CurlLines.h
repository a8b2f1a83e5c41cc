#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace tw {

// curl's standard error as lines. curl writes it in pieces of any size, down
// to single bytes, so a line can arrive over many reads and one read can
// hold many lines; only whole lines are handed on. Text that is not UTF-8
// (a server's reply in Latin-1) is decoded with replacement characters,
// never dropped: an error line next to it must still be seen.
class CurlLines {
public:
    // The whole lines the bytes complete (without their line feed).
    QStringList add(const QByteArray& bytes);
    // What is left after the last line feed, once curl has ended.
    std::optional<QString> rest();

    // The text curl reports an error with, found anywhere in a line (after a
    // progress frame too): "curl: (N) ...", or one of curl's failure lines
    // without a number ("curl: cannot open '...'", "curl: option ...",
    // "curl: try ..."). Nothing when the line reports no error.
    static std::optional<QString> errorIn(const QString& line);
    // Whether an error text (as errorIn answers it) is about curl's command
    // line or configuration ("curl: option ...", "curl: try ..."), not about
    // one of the run's transfers.
    static bool concernsTheCommandLine(const QString& error);
    // The local file of a "curl: cannot open 'PATH'" line.
    static std::optional<QString> unreadableFileIn(const QString& line);
    // The last percentage of the progress frames in the line.
    static std::optional<double> percentIn(const QString& line);
    // The end of one transfer of a run ("Connection #0 to host ... left
    // intact", "Closing connection").
    static bool endsTransfer(const QString& line);

private:
    QByteArray m_pending;
};

} // namespace tw
