#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tw {

// The texts curl and the servers print that the transfer engine reads back,
// and the small computations on them. Every function works on one chunk (the
// bytes of one read of a curl pipe) and does work proportional to it.
class TransporterOutput {
public:
    // The chunk as text, or nothing when it is not valid UTF-8 (such chunks
    // are ignored).
    static std::optional<QString> decode(const QByteArray& chunk);

    // curl's error line anywhere in the text: "curl: (N) " and the message,
    // letters in any case.
    static bool isCurlError(const QString& text);
    // The server refused the login ("Access denied: 530").
    static bool isAccessDenied(const QString& text);
    // The server confirms one upload ("226-File successfully transferred").
    static bool isUploadConfirmation(const QString& text);
    // A delete that worked: the server's "250 Delete..." (any case), or
    // curl's verbose trace of a data transfer ("bytes data]").
    static bool isDeleteConfirmation(const QString& text);
    // The server refused a delete ("550 Could not delete").
    static bool isDeleteRefusal(const QString& text);

    // The message a person sees for an error chunk: leading white space
    // dropped, then the first line that holds a curl error, from where that
    // error starts (curl writes its progress frames and errors on one line);
    // else the first line that begins with "curl", else the first line; and
    // every "curl: " taken out. "curl: (78) The file does not exist" gives
    // "(78) The file does not exist".
    static QString cleanErrorText(const QString& text);

    // The progress of a single-mode meter: every character but digits and
    // "." dropped and the rest read as a number; nothing when that is no
    // number (two meters in one chunk run together).
    static std::optional<double> singlePercent(const QString& text);
    // The progress of a batch meter: the first one to three digits with an
    // optional fraction before "%"; the character between the integer and
    // the fraction digits may be any (so "5x25%" is found, and is no number).
    static std::optional<double> batchPercent(const QString& text);

    // An argument without its line feeds, tabs and carriage returns.
    static QString cleanArgument(const QString& argument);
};

} // namespace tw
